// Any bytes as the agent's own log: what is read of it at once and what a follower reads of it piece by
// piece are the records of its whole lines, and every record that is written is read back.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "agentctl/own_log.h"
#include "eventlog/record.h"
#include "platform/fake/manual_clock.h"
#include "platform/fake/memory_files.h"
#include "util/ignore_result.h"

namespace {

using namespace korvane;
using agentctl::LogRecord;

constexpr char kFile[] = "/logs/korvane-agent-20261121101530123-9.log";
constexpr char kNext[] = "/logs/korvane-agent-20261121101630000-1.log";

void append(platform::Files& files, const std::string& path, std::string_view bytes) {
  std::unique_ptr<platform::File> file;
  if (files.open(path, platform::OpenMode::append, file) != 0 ||
      file->write(bytes.data(), bytes.size()) != 0)
    std::abort();
}

std::vector<LogRecord> wholeLines(std::string_view bytes) {
  std::vector<LogRecord> records;
  for (size_t end; (end = bytes.find('\n')) != std::string_view::npos;
       bytes.remove_prefix(end + 1)) {
    LogRecord record;
    if (agentctl::parseRecord(bytes.substr(0, end), record)) records.push_back(std::move(record));
  }
  return records;
}

void mustBeSame(const std::vector<LogRecord>& one, const std::vector<LogRecord>& other) {
  if (one.size() != other.size()) std::abort();
  for (size_t i = 0; i < one.size(); ++i)
    if (one[i].text != other[i].text || one[i].insertions != other[i].insertions) std::abort();
}

void checkReading(const std::string& bytes, size_t piece) {
  platform::ManualClock clock;
  platform::MemoryFiles files(clock);
  ignoreResult(files.makeDirectories("/logs"));
  agentctl::LogFollower follower(files, "/logs");
  append(files, kFile, {});
  std::vector<LogRecord> followed;
  for (size_t at = 0; at < bytes.size(); at += piece) {
    append(files, kFile, std::string_view(bytes).substr(at, piece));
    for (LogRecord& record : follower.next()) followed.push_back(std::move(record));
  }
  append(files, kFile, "\n");
  append(files, kNext, "AINF,1,t,1,s,1,2,last\n");
  for (LogRecord& record : follower.next()) followed.push_back(std::move(record));
  const std::vector<LogRecord> expected = wholeLines(bytes + "\nAINF,1,t,1,s,1,2,last\n");
  mustBeSame(followed, expected);
  const auto all = [](const LogRecord&) { return true; };
  mustBeSame(agentctl::newestRecords(files, "/logs", expected.size() + 1, all), expected);
}

void checkWriting(const std::string& bytes) {
  const std::vector<std::string> insertions = {bytes, "last"};
  eventlog::Record record;
  record.type = "AERR";
  record.id = 10100;
  record.source = "source";
  record.text = bytes;
  record.insertions = insertions;
  std::string line;
  eventlog::appendRecord(line, record);
  const std::vector<LogRecord> read = wholeLines(line);
  if (line.size() > eventlog::kMaxRecordBytes || read.size() != 1) std::abort();
  if (read[0].number != 10100 || read[0].insertions.size() != 2) std::abort();
  if (bytes.size() < 1000 && read[0].insertions[0] != read[0].text) std::abort();
  if (read[0].insertions[1] != "last" && bytes.size() < 1000) std::abort();
  ignoreResult(agentctl::textOf(read[0], {{10100, {"AERR", "failed: %1 (%2)"}}}));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  const size_t shortest = size / 64 + 1;  // of many bytes not too many pieces
  checkReading(bytes, size == 0 ? 1 : std::max<size_t>(data[0], shortest));
  checkWriting(bytes);
  return 0;
}
