#include "config/value_map.h"

#include <algorithm>
#include <limits>
#include <unordered_map>

namespace korvane {
namespace {

// A whole decimal number between the bounds; blanks around it are gone already.
bool parseNumber(const STRING& text, int64_t least, int64_t most, int64_t& out) {
  const std::u16string& units = text.utf16();
  const bool negative = units.starts_with(u'-');
  if (units.size() == negative || units.size() > 11) return false;
  int64_t number = 0;
  for (size_t i = negative; i < units.size(); ++i) {
    if (units[i] < u'0' || units[i] > u'9') return false;
    number = number * 10 + (units[i] - u'0');
  }
  if (negative) number = -number;
  if (number < least || number > most) return false;
  out = number;
  return true;
}

bool parseBool(const STRING& text, int64_t& out) {
  out = text.equalsIgnoreCase("true") || text == "1";
  return out || text.equalsIgnoreCase("false") || text == "0";
}

bool isText(ValueType type) {
  return type == ValueType::text || type == ValueType::path || type == ValueType::paths;
}

// Reads `text` as the row's type and gives it the one spelling that is stored. An empty text stands
// for the default of a setting that is not a text.
bool readTyped(const SettingRow& row, STRING& text, int64_t& number) {
  if (isText(row.type)) return true;
  if (text.empty()) text = row.defaultText;
  using Limits = std::numeric_limits<int32_t>;
  switch (row.type) {
    case ValueType::boolean:
      if (!parseBool(text, number)) return false;
      text = STRING::fromBool(number != 0);
      return true;
    case ValueType::integer:
      if (!parseNumber(text, Limits::min(), Limits::max(), number)) return false;
      break;
    case ValueType::interval:
      if (!parseNumber(text, 0, std::numeric_limits<uint32_t>::max(), number)) return false;
      break;
    default:
      if (!parseNumber(text, 0, Limits::max(), number)) return false;
  }
  text = STRING::fromInt(number);
  return true;
}

}  // namespace

ValueMap::ValueMap(MapKind kind) : _kind(kind) {
  for (const SettingRow& row : settingsTable()) {
    if (mapKindOf(row) != kind) continue;
    _places[static_cast<size_t>(row.key)] = static_cast<uint8_t>(_values.size());
    Value initial{row.defaultText, row.defaultText, 0};
    readTyped(row, initial.text, initial.number);
    _units += initial.text.length();
    _values.push_back(std::move(initial));
  }
}

bool ValueMap::fits(size_t oldUnits, size_t newUnits) const {
  return newUnits <= kMaxValueUnits && _units - oldUnits + newUnits <= kMaxMapUnits;
}

ValueMap::Result ValueMap::set(const SettingRow& row, const STRING& text) {
  Value& target = value(row.key);
  STRING wanted = lineValue(text);
  int64_t number = 0;
  if (!readTyped(row, wanted, number)) return Result::refused;
  if (wanted == target.text) return Result::unchanged;
  if (!fits(target.text.length(), wanted.length())) return Result::refused;
  _units = _units - target.text.length() + wanted.length();
  target.text = std::move(wanted);
  target.number = number;
  return Result::changed;
}

const STRING* ValueMap::other(const STRING& key) const {
  const auto found = std::find_if(_others.begin(), _others.end(),
                                  [&](const auto& entry) { return entry.first == key; });
  return found == _others.end() ? nullptr : &found->second.text;
}

void ValueMap::listOthers(PropertyList& out) const {
  for (const auto& [key, entry] : _others) out.emplace_back(key, entry.text);
}

ValueMap::Others::iterator ValueMap::findOther(const STRING& key) {
  return std::find_if(_others.begin(), _others.end(),
                      [&](const auto& entry) { return entry.first == key; });
}

ValueMap::Result ValueMap::setOther(const STRING& key, const STRING& text) {
  const STRING wanted = lineValue(text);
  const auto found = findOther(key);
  const bool isNew = found == _others.end();
  if (!isNew && found->second.text == wanted) return Result::unchanged;
  const size_t oldUnits = isNew ? 0 : found->second.text.length();
  const size_t newUnits = wanted.length() + (isNew ? key.length() : 0);
  if (!fits(oldUnits, newUnits) || (isNew && _others.size() >= kMaxOthers)) return Result::refused;
  _units = _units - oldUnits + newUnits;
  // What the file lacks differs from every value, an empty one too: a text that no line can hold.
  if (isNew) _others.emplace_back(key, Value{{}, STRING(u"\n"), 0});
  (isNew ? _others.back() : *found).second.text = wanted;
  return Result::changed;
}

bool ValueMap::mergeRow(const SettingRow& row, const STRING* fromFile, PropertyList& refused) {
  Value& target = value(row.key);
  const bool ownChange = target.text != target.saved;
  const STRING theirs = fromFile ? *fromFile : STRING(row.defaultText);
  if (ownChange) {
    target.saved = theirs;
    return false;
  }
  const Result result = set(row, theirs);
  if (result == Result::refused) refused.emplace_back(row.name, theirs);
  target.saved = target.text;
  return result == Result::changed;
}

bool ValueMap::mergeOthers(const PropertyList& fromFile, PropertyList& refused) {
  bool changed = false;
  for (const auto& [key, text] : fromFile) {
    const auto own = findOther(key);
    if (own != _others.end() && own->second.text != own->second.saved) {
      own->second.saved = text;
    } else if (const Result result = setOther(key, text); result != Result::refused) {
      changed |= result == Result::changed;
      Value& taken = findOther(key)->second;
      taken.saved = taken.text;
    } else {
      refused.emplace_back(key, text);
    }
  }
  const size_t before = _others.size();
  std::erase_if(_others, [&](const auto& entry) {
    if (entry.second.text != entry.second.saved || findProperty(fromFile, entry.first)) {
      return false;
    }
    _units -= entry.first.length() + entry.second.text.length();
    return true;
  });
  return changed || _others.size() != before;
}

bool ValueMap::merge(const IniText& file, PropertyList& refused) {
  std::unordered_map<std::u16string_view, const STRING*> known;
  PropertyList unknown;
  for (const auto& [key, text] : file.values) {
    if (findRow(key)) {
      known.emplace(key.utf16(), &text);
    } else if (_kind == MapKind::settings) {
      const bool fits = isKeyName(key) && unknown.size() < kMaxOthers;
      (fits ? unknown : refused).emplace_back(key, text);
    }
  }
  bool changed = false;
  for (const SettingRow& row : settingsTable()) {
    if (mapKindOf(row) != _kind) continue;
    const auto found = known.find(STRING(row.name).utf16());
    changed |= mergeRow(row, found == known.end() ? nullptr : found->second, refused);
  }
  if (_kind == MapKind::settings) changed |= mergeOthers(unknown, refused);
  return changed;
}

bool ValueMap::dirty() const {
  const auto differs = [](const Value& value) { return value.text != value.saved; };
  return std::any_of(_values.begin(), _values.end(), differs) ||
         std::any_of(_others.begin(), _others.end(),
                     [&](const auto& entry) { return differs(entry.second); });
}

void ValueMap::markSaved(const ValueMap& written) {
  for (size_t i = 0; i < _values.size(); ++i) _values[i].saved = written._values[i].text;
  for (auto& [key, value] : _others) {
    if (const STRING* text = written.other(key)) value.saved = *text;
  }
}

void ValueMap::writeSection(IniWriter& writer, std::string_view section) const {
  if (section == kOtherSection) {
    for (const auto& [key, value] : _others) {
      writer.section(section);
      writer.value(key, value.text);
    }
    return;
  }
  for (const SettingRow& row : settingsTable()) {
    if (section != row.section || mapKindOf(row) != _kind) continue;
    writer.section(section);
    writer.value(row.name, text(row.key));
  }
}

}  // namespace korvane
