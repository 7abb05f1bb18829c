// One of the two name/value maps: the settings of a MapKind, each as text and as a typed value,
// and, in the main one, the keys that belong to no section of the table.
//
// Beside its value every setting remembers what the file held when it was last read or written, so
// that a change of this process and one made to the file by another can be told apart and both
// survive. A value type without a lock of its own: SettingsStore guards it.
#pragma once

#include <array>
#include <cstdint>
#include <utility>
#include <vector>

#include "config/ini_text.h"
#include "config/settings_table.h"

namespace korvane {

class ValueMap {
 public:
  enum class Result { refused, unchanged, changed };

  // Every setting has its default.
  explicit ValueMap(MapKind kind);

  const STRING& text(Key key) const { return value(key).text; }
  int64_t number(Key key) const { return value(key).number; }  // 0 and 1 for a boolean
  // Refused: the text is not of the setting's type, or too long, or the map would outgrow its
  // bound.
  [[nodiscard]] Result set(const SettingRow& row, const STRING& text);

  // Appends the pairs of [Other].
  void listOthers(PropertyList& out) const;
  // Null when there is no such key.
  const STRING* other(const STRING& key) const;
  [[nodiscard]] Result setOther(const STRING& key, const STRING& text);
  bool othersFull() const { return _others.size() >= kMaxOthers; }

  // Takes over what the file holds where this process has changed nothing; a key that the file
  // lacks goes back to its default, and one of [Other] is dropped. A value that is refused leaves
  // the setting as it is and goes to `refused`. True when a value differs now.
  bool merge(const IniText& file, PropertyList& refused);
  // True when a value differs from the file's.
  bool dirty() const;
  // The file holds `written` now.
  void markSaved(const ValueMap& written);
  // Writes this map's keys of a section; for [Other] the unknown ones.
  void writeSection(IniWriter& writer, std::string_view section) const;

  // UTF-16 code units that one value, and all texts of a map together, may have.
  static constexpr size_t kMaxValueUnits = 64u << 10;
  static constexpr size_t kMaxMapUnits = 512u << 10;
  // Keys that [Other] may have.
  static constexpr size_t kMaxOthers = 1000;

 private:
  struct Value {
    STRING text;
    STRING saved;
    int64_t number = 0;
  };

  using Others = std::vector<std::pair<STRING, Value>>;

  const Value& value(Key key) const { return _values[_places[static_cast<size_t>(key)]]; }
  Value& value(Key key) { return _values[_places[static_cast<size_t>(key)]]; }
  bool fits(size_t oldUnits, size_t newUnits) const;
  Others::iterator findOther(const STRING& key);
  bool mergeRow(const SettingRow& row, const STRING* fromFile, PropertyList& refused);
  bool mergeOthers(const PropertyList& fromFile, PropertyList& refused);

  MapKind _kind;
  std::array<uint8_t, static_cast<size_t>(Key::count)> _places{};
  std::vector<Value> _values;
  Others _others;
  size_t _units = 0;
};

}  // namespace korvane
