// forward - sends an event log to a management server with the library's own reading and
// writing passes, back to back, and ends with status 0 when the log's MEOF was reached and
// everything has been delivered.
//
//   forward --log FILE --url URL --ca FILE --state DIR [--keep]
//
// The read pointer lies in DIR, so a run that was killed goes on where it stood. --keep leaves the
// log; otherwise it is removed at its end, as the agent does it.
#include <CLI/CLI.hpp>
#include <cstdio>

#include "agent/thread/stop_token.h"
#include "bench/bench_agent.h"
#include "comm/server_connection.h"
#include "logs/https_log_destination.h"

namespace {

constexpr uint32_t kRetryMs = 1000;
constexpr uint32_t kPauseMs = 20;

int forwardAll(korvane::bench::BenchProcessor& processor) {
  uint64_t events = 0, records = 0, requests = 0;
  while (!processor.finished()) {
    const int read = processor.readRecords();
    const int written = processor.writeRecords();
    events += static_cast<uint64_t>(read);
    if (written > 0) records += static_cast<uint64_t>(written), ++requests;
    if (written < 0)
      korvane::shutdownToken().sleepFor(kRetryMs);
    else if (read == 0 && written == 0)
      korvane::shutdownToken().sleepFor(kPauseMs);
  }
  std::printf("{\"events\": %llu, \"records\": %llu, \"requests\": %llu}\n",
              static_cast<unsigned long long>(events), static_cast<unsigned long long>(records),
              static_cast<unsigned long long>(requests));
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  korvane::bench::AgentSettings settings;
  bool keep = false, noFolding = false;
  CLI::App app("Sends an event log to a management server.");
  app.add_option("--log", settings.log, "the event log")->required();
  app.add_option("--url", settings.url, "the server's base URL")->required();
  app.add_option("--ca", settings.caFile, "the CA certificate")->required();
  app.add_option("--state", settings.stateFolder, "folder of the read pointer")->required();
  app.add_flag("--keep", keep, "do not remove the log at its end");
  app.add_option("--batch", settings.batchLimit, "records in a message");
  app.add_option("--read", settings.readLimit, "records read in a pass");
  app.add_flag("--no-folding", noFolding, "send repeats one by one");
  CLI11_PARSE(app, argc, argv);
  settings.folding = !noFolding;
  const korvane::ForwardingParts parts = korvane::bench::setUpAgent(settings);
  korvane::ServerSettings& server =
      korvane::settingsOf(*korvane::AgentConfig::getInstance()).server;
  korvane::bench::BenchProcessor processor(
      parts,
      std::make_unique<korvane::HttpsLogDestination>(korvane::currentConnection(), server,
                                                     parts.counters),
      keep);
  return forwardAll(processor);
}
