#include "logs/log.h"

#include "logs/event_category.h"

namespace korvane {

void Log::setFields(const std::vector<STRING>& values) {
  setStandardFields(values);
}

void Log::setStandardFields(const std::vector<STRING>& tokens) {
  for (size_t i = 0; i < _fields.size(); ++i) _fields[i] = i < tokens.size() ? tokens[i] : STRING();
}

// The number in "vN", or 0 when it is none of the standard fields' names.
size_t Log::numberOf(const STRING& name) {
  for (size_t n = 1; n <= kStandardFields; ++n)
    if (name == "v" + STRING::fromInt(static_cast<int64_t>(n))) return n;
  return 0;
}

void Log::setField(const STRING& name, const STRING& value) {
  if (const size_t n = numberOf(name)) _fields[n - 1] = value;
}

STRING Log::getFieldByName(const STRING& name) const {
  const size_t n = numberOf(name);
  return n ? _fields[n - 1] : STRING();
}

const STRING& Log::standardField(size_t n) const {
  return _fields.at(n - 1);
}

bool Log::matches(const std::map<STRING, STRING>& conditions) const {
  PropertyList values;
  getFieldMap(values);
  for (const auto& [name, value] : conditions)
    if (propertyValue(values, name) != value) return false;
  return true;
}

int Log::getEventCategory(const STRING& type) const {
  return eventCategory(type.toUtf8());
}

void Log::merge(const Log& later) {
  ++_occurrences;
  _lastOccurrence = later.standardField(3).substr(0, kLastTimeLength);
  _fields[1] = later.standardField(2);
}

}  // namespace korvane
