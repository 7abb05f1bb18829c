#include "logs/fixed_format_log.h"

#include "config/log_names.h"
#include "logs/byte_buffer.h"
#include "logs/event_category.h"
#include "logs/field_map.h"
#include "platform/clock.h"

namespace korvane {

FixedFormatLog::FixedFormatLog(LogType type, const MachineFacts& machine, platform::Clock& clock)
    : _type(type), _machine(machine), _clock(clock) {}

bool FixedFormatLog::parseLog(const STRING& line) {
  ByteBuffer text;
  text.append(line.toUtf8());
  text.reserve(1);
  ParsedEvent parsed;
  if (parseEvent(text.data(), text.size(), parsed) != ParseResult::accepted) return false;
  std::vector<STRING> fields;
  for (size_t n = 1; n <= parsed.fieldCount; ++n) fields.emplace_back(parsed.field(n));
  setFields(fields);
  return true;
}

void FixedFormatLog::setFields(const std::vector<STRING>& values) {
  setStandardFields(values);
  _extra.clear();
  if (values.size() > kStandardFields)
    _extra.assign(values.begin() + kStandardFields, values.end());
}

bool FixedFormatLog::shouldForward() const {
  return passesForwardFilter(standardField(1).toUtf8());
}

STRING FixedFormatLog::getField(size_t n) const {
  if (n <= kStandardFields || n > kStandardFields + _extra.size()) return {};
  return _extra[n - kStandardFields - 1];
}

size_t FixedFormatLog::getFieldMap(PropertyList& map) const {
  struct Fields {
    const FixedFormatLog& log;
    STRING field(size_t n) const {
      return n <= kStandardFields ? log.standardField(n) : log.getField(n);
    }
    size_t extraFields() const { return log.getExtraFieldCount(); }
  };
  struct Pairs {
    const FixedFormatLog& log;
    const RecordNotes recordNotes;
    PropertyList& map;
    void field(size_t n, const STRING& value) {
      map.emplace_back("v" + STRING::fromInt(static_cast<int64_t>(n)), value);
    }
    void notes() { recordNotes.addPairs(log.getOccurrenceCount(), log.lastOccurrence(), map); }
  } out{*this, RecordNotes::take(_machine, logBaseName(_type), _clock.wallMs()), map};
  visitFieldMap(Fields{*this}, out);
  return kStandardFields + _extra.size();
}

}  // namespace korvane
