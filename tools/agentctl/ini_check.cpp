#include "agentctl/ini_check.h"

#include <algorithm>
#include <map>
#include <utility>

#include "agentctl/nearest.h"
#include "agentctl/value_check.h"
#include "config/ini_text.h"
#include "config/settings_table.h"
#include "config/value_map.h"
#include "util/ignore_result.h"
#include "util/utf8.h"

namespace korvane::agentctl {
namespace {

constexpr std::string_view kMark = "\xEF\xBB\xBF";
constexpr size_t kMaxKeyBytes = 256;

std::string_view trim(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  const size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

size_t lineOf(std::string_view bytes, size_t at) {
  return 1 + static_cast<size_t>(
                 std::count(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(at), '\n'));
}

std::string meant(std::string_view word, const std::vector<std::string>& names) {
  const std::string near = nearest(word, names);
  return near.empty() ? "" : "; did you mean " + near + "?";
}

bool isKnown(std::string_view word, const std::vector<std::string>& names) {
  return std::find(names.begin(), names.end(), word) != names.end();
}

// What makes the whole file unreadable, whatever its lines say.
bool checkBytes(std::string_view bytes, std::vector<IniFinding>& out) {
  const auto damaged = [&](size_t at, const std::string& what) {
    out.push_back({lineOf(bytes, at), true, what + "; the agent ignores such a file"});
    return false;
  };
  if (bytes.size() > kMaxIniBytes)
    return damaged(kMaxIniBytes, "the file has " + std::to_string(bytes.size()) +
                                     " bytes, more than " + std::to_string(kMaxIniBytes));
  if (bytes.starts_with("\xFF\xFE") || bytes.starts_with("\xFE\xFF"))
    return damaged(0, "the file is UTF-16 and must be UTF-8");
  if (const size_t at = bytes.find('\0'); at != std::string_view::npos)
    return damaged(at, "a NUL byte");
  for (size_t at = 0; at < bytes.size();) {
    const size_t end = std::min(bytes.find('\n', at), bytes.size());
    if (!isValidUtf8(bytes.substr(at, end - at))) return damaged(at, "bytes that are not UTF-8");
    at = end + 1;
  }
  return true;
}

class Checker {
 public:
  Checker(std::string_view bytes, bool needsChecksum, std::vector<IniFinding>& out)
      : _bytes(bytes), _needsChecksum(needsChecksum), _out(out) {
    // What cannot be parsed is what the check is there to find.
    ignoreResult(parseIniText(bytes, _parsed));
  }

  void run() {
    std::string_view rest = _bytes;
    if (rest.starts_with(kMark)) rest.remove_prefix(kMark.size());
    while (!rest.empty()) {
      const size_t end = std::min(rest.find('\n'), rest.size());
      ++_line;
      check(trim(rest.substr(0, end)));
      rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    checkTotals();
    if (!_parsed.hasChecksum) checkMissingChecksum();
  }

 private:
  void error(const std::string& text) { _out.push_back({_line, true, text}); }
  void warning(const std::string& text) { _out.push_back({_line, false, text}); }

  void check(std::string_view line) {
    if (line.empty() || line.front() == ';' || line.front() == '#') return;
    if (line.front() == '[')
      checkHeader(line);
    else if (const size_t equals = line.find('='); equals == std::string_view::npos)
      error("no \"=\"; the line is skipped: " + std::string(line.substr(0, 60)));
    else
      checkPair(trim(line.substr(0, equals)), trim(line.substr(equals + 1)));
  }

  void checkHeader(std::string_view line) {
    if (line.back() != ']') return error("a section header without \"]\"; the line is skipped");
    if (_belowChecksum) return error("a section below [Checksum], where nothing is read");
    _section = line.substr(1, line.size() - 2);
    _belowChecksum = _section == kChecksumSection;
    if (!isKnown(_section, sectionNames()))
      warning("unknown section [" + _section + "]; its keys are still read" +
              meant(_section, sectionNames()));
  }

  void checkPair(std::string_view key, std::string_view value) {
    if (key.empty()) return error("no key before the \"=\"; the line is skipped");
    if (key.size() > kMaxKeyBytes)
      return error("a key of " + std::to_string(key.size()) + " bytes, more than " +
                   std::to_string(kMaxKeyBytes) + "; the line is skipped");
    if (_belowChecksum) return checkBelowChecksum(key, value);
    if (key == kChecksumKey)
      return error("agentini.checksum is only valid below [Checksum]; the line is skipped");
    if (!isKeyName(STRING(key)))
      return error("the key holds a control character; the line is dropped");
    const auto [first, isNew] = _seen.emplace(std::string(key), _line);
    if (!isNew)
      return error(std::string(key) + " is already set in line " + std::to_string(first->second) +
                   "; that one is used and this one is dropped");
    if (std::any_of(value.begin(), value.end(),
                    [](char c) { return static_cast<unsigned char>(c) < 0x20; }))
      warning("the value of " + std::string(key) +
              " holds control characters, which become blanks");
    if (const SettingRow* row = findRow(STRING(key)))
      checkKnown(*row, value);
    else
      checkOther(key, value);
  }

  void checkKnown(const SettingRow& row, std::string_view value) {
    if (_section != row.section)
      warning(std::string(row.name) + " belongs to [" + row.section + "]; it is read here as well");
    countUnits(mapKindOf(row), value, 0);
    const ValueFault fault = checkValue(row.name, STRING(value));
    if (!fault.text.empty()) _out.push_back({_line, fault.refused, fault.text});
  }

  void checkOther(std::string_view key, std::string_view value) {
    if (++_others > ValueMap::kMaxOthers && _others == ValueMap::kMaxOthers + 1)
      error("more than " + std::to_string(ValueMap::kMaxOthers) +
            " keys outside the known sections; this one and those below are dropped");
    if (STRING(value).length() > ValueMap::kMaxValueUnits)
      error("the value of " + std::string(key) + " has more than " +
            std::to_string(ValueMap::kMaxValueUnits) + " characters; the line is dropped");
    const ValueFault fault = checkValue(STRING(key), STRING(value));
    if (!fault.text.empty()) _out.push_back({_line, fault.refused, fault.text});
    if (_section != kOtherSection)
      warning("unknown key " + std::string(key) + ", kept in [Other]" + meant(key, keyNames()));
    countUnits(MapKind::settings, value, key.size());
  }

  void countUnits(MapKind store, std::string_view value, size_t key) {
    size_t& units = store == MapKind::settings ? _units : _communicationUnits;
    units += STRING(value).length() + key;
  }

  void checkTotals() {
    if (std::max(_units, _communicationUnits) > ValueMap::kMaxMapUnits)
      error("all values together have more than " + std::to_string(ValueMap::kMaxMapUnits) +
            " characters; the last ones are dropped");
  }

  void checkBelowChecksum(std::string_view key, std::string_view value) {
    if (key != kChecksumKey)
      return error(std::string(key) + " stands below [Checksum], where nothing is read");
    if (std::exchange(_checksumSeen, true))
      return error("a second agentini.checksum; the first one is used");
    if (value == kNotComputed || value == _parsed.computedChecksum) return;
    error(std::string(
              "the checksum does not match the lines above: the whole file counts as damaged; ") +
          "after editing by hand set agentini.checksum=" + kNotComputed);
  }

  void checkMissingChecksum() {
    if (_needsChecksum)
      error(std::string("no agentini.checksum below [Checksum] while there is a fallback.ini: ") +
            "the whole file counts as damaged");
  }

  const std::string_view _bytes;
  const bool _needsChecksum;
  std::vector<IniFinding>& _out;
  IniText _parsed;
  size_t _line = 0;
  std::string _section;
  std::map<std::string, size_t> _seen;  // key and its line
  bool _belowChecksum = false;
  bool _checksumSeen = false;
  size_t _others = 0;
  size_t _units = 0;
  size_t _communicationUnits = 0;
};

}  // namespace

std::vector<IniFinding> checkIni(std::string_view bytes, bool needsChecksum) {
  std::vector<IniFinding> findings;
  if (checkBytes(bytes, findings)) Checker(bytes, needsChecksum, findings).run();
  return findings;
}

}  // namespace korvane::agentctl
