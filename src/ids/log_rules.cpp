#include "ids/log_rules.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <set>
#include <utility>

#include "config/ini_text.h"
#include "eventlog/event_log.h"
#include "platform/files.h"
#include "platform/paths.h"

namespace korvane {
namespace {

constexpr char kRulesSource[] = "LogRules";
constexpr std::string_view kRulesHead = "korvane-log-rules 1 ";
// More than the most rules of the most three-byte characters.
constexpr uint64_t kMaxRulesBytes = 16u << 20;
constexpr size_t kMaxRuleNameUnits = 256;
constexpr size_t kLastField = 49;
constexpr size_t kTypeLength = 4;

std::string_view trimmed(std::string_view text) {
  const size_t begin = text.find_first_not_of(" \t");
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(" \t") + 1 - begin);
}

// The text up to the separator, taken off `rest`.
std::string_view nextPart(std::string_view& rest, char separator) {
  const size_t end = std::min(rest.find(separator), rest.size());
  const std::string_view part = rest.substr(0, end);
  rest.remove_prefix(std::min(end + 1, rest.size()));
  return part;
}

bool isType(std::string_view text) {
  constexpr std::string_view kinds = "TDPMA";
  return text.size() == kTypeLength && kinds.find(text[0]) != std::string_view::npos &&
         std::all_of(text.begin(), text.end(), [](char c) {
           return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
         });
}

template <class Number>
bool readNumber(std::string_view text, Number& out) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), out);
  return error == std::errc() && end == text.data() + text.size() &&
         (text.size() == 1 || text.front() != '0');
}

// The value's number, 0 for a name of none.
size_t fieldNamed(std::string_view name) {
  size_t number = 0;
  if (name.size() < 2 || !readNumber(name.substr(1), number) || number == 0) return 0;
  if (name.front() == 'v' && number <= kLastField) return number;
  if (name.front() == 'a' && number <= LogRuleSet::kMaxNotes) return LogRuleSet::kNoteBase + number;
  return 0;
}

}  // namespace

std::string LogRuleSet::parseTypes(std::string_view text, Rule& rule) {
  if (text == "*") return {};
  std::string_view rest = text;
  do {
    const std::string_view type = trimmed(nextPart(rest, ','));
    if (!isType(type)) return "\"" + std::string(type) + "\" is no event type";
    rule.types.emplace_back(type);
  } while (!rest.empty());
  if (text.ends_with(',')) return "\"\" is no event type";
  return rule.types.size() > kMaxTypes ? "it names more than 64 event types" : "";
}

std::string LogRuleSet::parseCondition(std::string_view text, Rule& rule) {
  const size_t equals = text.find('=');
  if (equals == std::string_view::npos)
    return "\"" + std::string(trimmed(text)) + "\" is no name=value";
  const std::string_view name = trimmed(text.substr(0, equals));
  const size_t field = fieldNamed(name);
  if (field == 0) return "\"" + std::string(name) + "\" is none of v1 to v49 and a1 to a4";
  for (const Condition& known : rule.conditions)
    if (known.field == field) return "it names " + std::string(name) + " twice";
  rule.conditions.push_back({field, std::string(trimmed(text.substr(equals + 1)))});
  return {};
}

std::string LogRuleSet::parseRule(std::string_view value, Rule& rule) {
  const size_t colon = value.rfind(':');
  const std::string_view verdict =
      colon == std::string_view::npos ? std::string_view() : trimmed(value.substr(colon + 1));
  if (verdict != "0" && verdict != "1") return "it does not end with :0 or :1";
  rule.forward = verdict == "1";
  const std::string_view all = value.substr(0, colon);
  std::string_view rest = all;
  std::string wrong = parseTypes(trimmed(nextPart(rest, ';')), rule);
  while (wrong.empty() && !rest.empty()) wrong = parseCondition(nextPart(rest, ';'), rule);
  if (wrong.empty() && all.ends_with(';')) return "\"\" is no name=value";
  return wrong;
}

std::shared_ptr<const LogRuleSet> LogRuleSet::parse(const PropertyList& pairs,
                                                    RefusedRule& refused) {
  auto set = std::make_shared<LogRuleSet>();
  std::set<STRING> names;
  for (const auto& [name, value] : pairs) {
    Rule rule;
    std::string wrong;
    if (names.size() == kMaxRules)
      wrong = "there are more than 1000 rules";
    else if (name.length() > kMaxRuleNameUnits)
      wrong = "its name is longer than 256 characters";
    else if (!names.insert(name).second)
      wrong = "its name comes twice";
    else if (value.length() > kMaxValueUnits)
      wrong = "it is longer than 4096 characters";
    else
      wrong = parseRule(oneLine(value).toUtf8(), rule);
    if (!wrong.empty()) {
      refused = {name, wrong};
      return nullptr;
    }
    for (const Condition& condition : rule.conditions)
      set->_usesNotes |= condition.field > kNoteBase;
    set->_rules.push_back(std::move(rule));
  }
  return set;
}

namespace {

std::string fileText(const PropertyList& pairs) {
  std::string text = std::string(kRulesHead) + std::to_string(pairs.size()) + "\n";
  for (const auto& [name, value] : pairs)
    text += name.toUtf8() + "=" + oneLine(value).toUtf8() + "\n";
  return text;
}

// What is wrong with the text; empty when nothing is.
std::string parseFile(std::string_view text, std::shared_ptr<const LogRuleSet>& out) {
  std::string_view head = nextPart(text, '\n');
  if (!head.starts_with(kRulesHead)) return "its first line is not that of a rules file";
  size_t count = 0;
  if (!readNumber(head.substr(kRulesHead.size()), count)) return "its number of rules is none";
  if (text.empty() ? count != 0 : !text.ends_with('\n')) return "it is truncated";
  PropertyList pairs;
  while (!text.empty()) {
    std::string_view line = nextPart(text, '\n');
    if (line.find('=') == std::string_view::npos) return "a line is no rule";
    const std::string_view name = nextPart(line, '=');
    pairs.emplace_back(STRING(name), STRING(line));
  }
  if (pairs.size() != count) return "it has another number of rules than it says";
  RefusedRule refused;
  out = LogRuleSet::parse(pairs, refused);
  return out ? "" : refused.name.toUtf8() + ": " + refused.reason;
}

}  // namespace

void LogRules::readOnce() {
  if (std::exchange(_read, true)) return;
  std::string text;
  const int error = platform::readWholeFile(_files, _file, kMaxRulesBytes, text);
  if (error == ENOENT) return;
  const std::string wrong =
      error != 0 ? "error " + std::to_string(error) : parseFile(text, _current);
  if (!wrong.empty()) eventlog::event(EventId::logRulesUnusable, kRulesSource, {_file, wrong});
}

std::shared_ptr<const LogRuleSet> LogRules::current() {
  const Synchronized hold(_lock);
  readOnce();
  return _current;
}

LogRules::Outcome LogRules::replace(const PropertyList& pairs, RefusedRule& refused, int& error) {
  std::shared_ptr<const LogRuleSet> fresh = LogRuleSet::parse(pairs, refused);
  if (!fresh) {
    eventlog::event(EventId::logRulesRefused, kRulesSource, {refused.name, refused.reason});
    return Outcome::refused;
  }
  const Synchronized hold(_lock);
  readOnce();
  error = platform::writeFileAtomically(_files, _file, fileText(pairs));
  if (error != 0) {
    eventlog::trace(kRulesSource, "Cannot write the log rules to %s: error %d", _file, error);
    return Outcome::notWritten;
  }
  _current = std::move(fresh);
  return Outcome::inForce;
}

}  // namespace korvane
