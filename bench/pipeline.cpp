// pipeline - the forwarding pipeline without a network: reads a log, folds, queues, builds
// each message and drops it. Run under an instruction counter with two lengths of log it
// gives the cost of one event.
//
//   pipeline --log FILE --state DIR     prints one JSON object
#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>

#include "bench/bench_agent.h"
#include "bench/counting_new.h"

namespace {

class CountingDestination : public korvane::LogDestination {
 public:
  int writeLog(const korvane::LogBatch& batch) override {
    korvane::composeBody(_body, batch.records, batch.notes);
    bytes += _body.size();
    return 0;
  }
  uint64_t bytes = 0;

 private:
  korvane::MessageBody _body;
};

}  // namespace

int main(int argc, char** argv) {
  korvane::bench::AgentSettings settings;
  CLI::App app("Runs the forwarding pipeline without a network.");
  app.add_option("--log", settings.log, "the event log")->required();
  app.add_option("--state", settings.stateFolder, "folder of the read pointer, empty at first")
      ->required();
  app.add_option("--batch", settings.batchLimit, "records in a message");
  CLI11_PARSE(app, argc, argv);
  const korvane::ForwardingParts parts = korvane::bench::setUpAgent(settings);
  auto destination = std::make_unique<CountingDestination>();
  const CountingDestination& counted = *destination;
  korvane::bench::BenchProcessor processor(parts, std::move(destination), true);
  const auto started = std::chrono::steady_clock::now();
  const uint64_t allocatedBefore = korvane::bench::allocations();
  int64_t events = 0, records = 0;
  while (!processor.finished()) {
    events += processor.readRecords();
    records += processor.writeRecords();
  }
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - started;
  std::printf(
      "{\"events\": %lld, \"records\": %lld, \"bytes\": %llu, \"allocations\": %llu, \"seconds\": "
      "%.6f}\n",
      static_cast<long long>(events), static_cast<long long>(records),
      static_cast<unsigned long long>(counted.bytes),
      static_cast<unsigned long long>(korvane::bench::allocations() - allocatedBefore),
      seconds.count());
  return 0;
}
