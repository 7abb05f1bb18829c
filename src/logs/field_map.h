// The named values of a record, in their order on the wire: "v2", "v3", "v1", "v4" to "v17", then
// what the agent adds ("a1" to "a6"), then the extra fields from "v18" on; empty values are left
// out. visitFieldMap is the one place that knows this order; the message bytes, the pair lists and
// FixedFormatLog are made with it.
//
// Lifetime: nothing here keeps a record. Threads: no shared state. All sizes are bytes.
//
//   const RecordNotes notes = RecordNotes::take(machine, logBaseName(HIDS_RT_LOG), wallMs);
//   appendRecord(body, record, notes);
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "comm/message_body.h"
#include "config/log_type.h"
#include "logs/event_record.h"
#include "util/property_list.h"

namespace korvane {

class MachineFacts;
class RecordQueue;

// The values that the agent adds to the records of one batch, written out once.
class RecordNotes {
 public:
  struct Values {
    std::string hostname;         // a1
    std::string ipAddress;        // a2
    std::string operatingSystem;  // a3
    std::string logName;          // a4: the log that the record came from ("hidslog1rt")
    std::string forwardedAt;      // a6 of a record that stands for itself: when the agent sends it
  };
  explicit RecordNotes(Values values);
  // As the machine and the clock say now.
  static RecordNotes take(const MachineFacts& machine, std::string logName, int64_t wallMs);

  // The lines "a1=...\n" to "a6=...\n" of a record with this count, in pieces to be written one
  // behind the other. Refers to the notes and to `lastTime`.
  struct Lines {
    std::string_view prepared;
    std::array<char, 20> repeats;  // the "a5" line where it is not in `prepared`
    size_t repeatsLength = 0;
    std::string_view lastTime;  // the value of "a6", likewise
    size_t size() const;
    char* write(char* to) const;
  };
  Lines lines(int32_t count, std::string_view lastTime) const;
  // Calls give(name, value) for each of them that is not empty.
  template <class Give>
  void visit(int32_t count, std::string_view lastTime, Give&& give) const;
  // The same as (name, value) pairs.
  void addPairs(int32_t count, const STRING& lastTime, PropertyList& out) const;

 private:
  // What "a5" says of a record that stands for so many events.
  static int32_t repeats(int32_t count) { return count >= 2 ? count - 1 : count; }

  std::string _upToA4;
  std::string _ofSingle;
  Values _values;
};

template <class Give>
void RecordNotes::visit(int32_t count, std::string_view lastTime, Give&& give) const {
  const auto giveValue = [&](std::string_view name, std::string_view value) {
    if (!value.empty()) give(name, value);
  };
  giveValue("a1", _values.hostname);
  giveValue("a2", _values.ipAddress);
  giveValue("a3", _values.operatingSystem);
  giveValue("a4", _values.logName);
  giveValue("a5", std::to_string(repeats(count)));
  giveValue("a6", count < 2 ? std::string_view(_values.forwardedAt) : lastTime);
}

// "v1" to "v49".
std::string_view fieldName(size_t n);

// Calls out.field(n, value) for the fields that are not empty and out.notes() where the agent's
// values belong. A Record has field(n), counted from 1, and extraFields().
template <class Record, class Out>
void visitFieldMap(const Record& record, Out& out) {
  const auto give = [&](size_t n) {
    if (const auto& value = record.field(n); !value.empty()) out.field(n, value);
  };
  give(2), give(3), give(1);
  for (size_t n = 4; n <= kStandardFields; ++n) give(n);
  out.notes();
  const size_t last = kStandardFields + record.extraFields();
  for (size_t n = kStandardFields + 1; n <= last; ++n) give(n);
}

// Adds the record as one section. scan::kBlock bytes behind record.text can be read.
void appendRecord(MessageBody& body, const EventRecord& record, const RecordNotes& notes);
// Makes the finished body of a message with a section for each record.
void composeBody(MessageBody& body, const RecordQueue& records, const RecordNotes& notes);
// The record as a list of pairs, equal to what appendRecord writes.
PropertyList fieldPairs(const EventRecord& record, const RecordNotes& notes);

}  // namespace korvane
