// The part of an event record that all kinds of record share: seventeen standard fields, "v1" to
// "v17", of which "v1" is the event type, "v2" the sequence number and "v3" the time; and what
// folding has made of it: how often the event occurred, and when it last did.
//
// A record is a value used by one thread. Field texts are as they stand between the separators.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <vector>

#include "config/log_type.h"
#include "logs/event_record.h"
#include "util/property_list.h"
#include "util/string.h"

namespace korvane {

class Log {
 public:
  virtual ~Log() = default;
  // Fills the record from one line; false when the line is rejected.
  [[nodiscard]] virtual bool parseLog(const STRING& line) = 0;
  // Sets the fields in order, the extra ones included.
  virtual void setFields(const std::vector<STRING>& values);
  // Whether the record may be folded into a summary; it is sent in any case.
  virtual bool shouldForward() const = 0;
  // True when every condition's value is that of the record's value of the same name.
  virtual bool matches(const std::map<STRING, STRING>& conditions) const;
  virtual LogType getLogType() const = 0;
  virtual size_t getExtraFieldCount() const = 0;
  virtual int32_t getOccurrenceCount() const { return _occurrences; }
  // Appends the record's named values; returns how many names there are, the empty ones included.
  virtual size_t getFieldMap(PropertyList& map) const = 0;
  // "v1" to "v17" from the first tokens; those without a token become empty.
  virtual void setStandardFields(const std::vector<STRING>& tokens);
  // Field "vN" by its name; nothing when the name is none of v1 to v17.
  virtual void setField(const STRING& name, const STRING& value);
  virtual STRING getFieldByName(const STRING& name) const;
  virtual bool isEndOfFile() const { return standardField(1) == "MEOF"; }
  virtual bool isStartOfFile() const { return standardField(1) == "MSOF"; }
  virtual STRING getField17() const { return standardField(kStandardFields); }
  virtual STRING getSequenceNumber() const { return standardField(2); }
  virtual STRING getTime() const { return standardField(3); }
  // An extra field by its number, from 18 on; empty for any other.
  virtual STRING getField(size_t n) const = 0;
  // The categories that an event type text names, as bits; 65535 for "*".
  virtual int getEventCategory(const STRING& type) const;
  // Folds a later occurrence of the same event into this one.
  virtual void merge(const Log& later);

  // "v1" to "v17" by number.
  const STRING& standardField(size_t n) const;
  const STRING& lastOccurrence() const { return _lastOccurrence; }

 private:
  static size_t numberOf(const STRING& name);

  std::array<STRING, kStandardFields> _fields;
  int32_t _occurrences = 1;
  STRING _lastOccurrence;
};

}  // namespace korvane
