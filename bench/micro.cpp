// The single steps of forwarding, one row each; "items" are events, except for the response.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "bench/counting_new.h"
#include "bench/event_lines.h"
#include "comm/message_body.h"
#include "comm/response_parser.h"
#include "logs/byte_buffer.h"
#include "logs/event_notice.h"
#include "logs/event_record.h"
#include "logs/field_map.h"
#include "logs/line_reader.h"
#include "logs/record_queue.h"
#include "platform/files.h"

namespace korvane::bench {
namespace {

constexpr uint64_t kEvents = 4000;

const std::string& log() {
  static const std::string text = makeLog(kEvents);
  return text;
}

const RecordNotes& notes() {
  static const RecordNotes made(
      {"host-1.example", "10.0.0.1", "Linux 6.1", "hidslog1rt", "2026-11-21 10:15:30.12"});
  return made;
}

// A file that is a text in memory.
class TextFile : public platform::File {
 public:
  int read(void* buffer, size_t size, size_t& got) override {
    got = log().copy(static_cast<char*>(buffer), size, _at);
    _at += got;
    return 0;
  }
  int write(const void*, size_t) override { return 1; }
  int seek(int64_t offset) override { return _at = static_cast<size_t>(offset), 0; }
  int64_t tell() override { return static_cast<int64_t>(_at); }
  int info(platform::FileInfo& out) override { return out.size = log().size(), 0; }
  int truncate(uint64_t) override { return 1; }
  int flush() override { return 0; }

 private:
  size_t _at = 0;
};

std::vector<std::string> linesOfLog() {
  std::vector<std::string> lines;
  for (size_t begin = 0, end; (end = log().find('\n', begin)) != std::string::npos; begin = end + 1)
    lines.push_back(log().substr(begin, end - begin));
  return lines;
}

RecordQueue queueOfLog() {
  RecordQueue queue;
  ByteBuffer text;
  for (const std::string& line : linesOfLog()) {
    text.clear();
    text.append(line);
    ParsedEvent record;
    benchmark::DoNotOptimize(parseEvent(text.data(), text.size(), record));
    queue.push(record);
  }
  return queue;
}

// Counts events, bytes and allocations of one row.
class Row {
 public:
  explicit Row(benchmark::State& state) : _state(state), _before(allocations()) {}
  ~Row() {
    const auto runs = static_cast<double>(_state.iterations());
    _state.SetItemsProcessed(static_cast<int64_t>(runs * kEvents));
    _state.SetBytesProcessed(static_cast<int64_t>(runs * static_cast<double>(log().size())));
    _state.counters["allocs/event"] =
        static_cast<double>(allocations() - _before) / (runs * kEvents);
  }

 private:
  benchmark::State& _state;
  const uint64_t _before;
};

void lineSplit(benchmark::State& state) {
  TextFile file;
  LineReader reader;
  reader.attach(&file, false, 0);
  SourceLine line;
  // The first line makes the buffer.
  benchmark::DoNotOptimize(reader.next(line));
  const Row row(state);
  for (auto _ : state) {
    reader.seek(0);
    while (reader.next(line) == 0 && line.length > 0) benchmark::DoNotOptimize(line.text);
  }
}
BENCHMARK(lineSplit);

void recordParse(benchmark::State& state) {
  const std::vector<std::string> lines = linesOfLog();
  ByteBuffer text;
  text.reserve(4096);
  ParsedEvent record;
  const Row row(state);
  for (auto _ : state)
    for (const std::string& line : lines) {
      text.clear();
      text.append(line);
      benchmark::DoNotOptimize(parseEvent(text.data(), text.size(), record));
    }
}
BENCHMARK(recordParse);

void fieldMap(benchmark::State& state) {
  const RecordQueue queue = queueOfLog();
  const Row row(state);
  for (auto _ : state)
    for (size_t i = 0; i < queue.size(); ++i)
      benchmark::DoNotOptimize(fieldPairs(queue.at(i), notes()));
}
BENCHMARK(fieldMap);

void batchBodyBuild(benchmark::State& state) {
  const RecordQueue queue = queueOfLog();
  MessageBody body;
  for (size_t i = 0; i < queue.size(); ++i) appendRecord(body, queue.at(i), notes());
  const Row row(state);
  for (auto _ : state) {
    body.clear();
    for (size_t i = 0; i < queue.size(); ++i) appendRecord(body, queue.at(i), notes());
    body.finish();
    benchmark::DoNotOptimize(body.bytes());
  }
}
BENCHMARK(batchBodyBuild);

void eventNoticeBuild(benchmark::State& state) {
  const RecordQueue queue = queueOfLog();
  const LogBatch batch{queue, notes()};
  const Row row(state);
  for (auto _ : state) benchmark::DoNotOptimize(eventNotice(1, "1795255200123-1", batch));
  state.counters["notice bytes"] = static_cast<double>(eventNotice(1, "1", batch).size());
}
BENCHMARK(eventNoticeBuild);

// The answer to a poll: settings and log rules as properties.
void responseParse(benchmark::State& state) {
  std::string payload;
  for (int i = 0; i < 200; ++i)
    payload += "some.setting.of.the.agent." + std::to_string(i) + "=a value of usual length\n";
  MessageBody body;
  body.addSection("text/plain", "properties", payload);
  body.endSection();
  body.finish();
  ResponseParser parser;
  for (auto _ : state) {
    parser.reset();
    parser.addHeaderLine("HTTP/1.1 200 OK\r\n");
    parser.addHeaderLine("Content-Length: " + std::to_string(body.size()) + "\r\n");
    parser.addHeaderLine("Korvane-Error: 0\r\n");
    parser.addHeaderLine("\r\n");
    parser.addBody(body.bytes());
    if (!parser.finish(false)) state.SkipWithError(parser.fault().c_str());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(body.size()));
}
BENCHMARK(responseParse);

}  // namespace
}  // namespace korvane::bench
