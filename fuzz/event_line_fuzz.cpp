// A log with any content, UTF-8 and UTF-16LE: it is cut into lines, parsed and written as a message
// without fault, and the message has the length that was announced.
#include <cstdlib>
#include <memory>

#include "logs/field_map.h"
#include "logs/line_reader.h"
#include "logs/record_queue.h"
#include "logs/record_summary.h"
#include "platform/fake/fake_platform.h"
#include "util/errors.h"
#include "util/utf8.h"

namespace {

using namespace korvane;

void addLine(SourceLine& line, RecordQueue& queue, RecordSummary& summary) {
  if (!isValidUtf8({line.text, line.size})) std::abort();
  ParsedEvent record;
  try {
    if (parseEvent(line.text, line.size, record) != ParseResult::accepted) return;
  } catch (const AgentError&) {
    return;
  }
  queue.push(record);
  if (summary.matches(record))
    summary.fold(record), queue.push(summary.record());
  else
    summary.begin(record, 0);
}

void readLog(platform::File& file, bool utf16) {
  static const RecordNotes notes({"host", "192.0.2.1", "System", "hidslog1rt", "now"});
  LineReader reader;
  reader.attach(&file, utf16, 0);
  RecordQueue queue;
  RecordSummary summary;
  SourceLine line;
  while (reader.next(line) == 0 && line.length > 0) addLine(line, queue, summary);
  MessageBody body;
  for (size_t i = 0; i < queue.size(); ++i) {
    appendRecord(body, queue.at(i), notes);
    if (fieldPairs(queue.at(i), notes).empty()) std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static platform::FakePlatform fake;
  fake.files.put("/log.csv", {reinterpret_cast<const char*>(data), size});
  for (const bool utf16 : {false, true}) {
    std::unique_ptr<platform::File> file;
    if (fake.files.open("/log.csv", platform::OpenMode::read, file) != 0) std::abort();
    readLog(*file, utf16);
  }
  return 0;
}
