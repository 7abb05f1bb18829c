#include "translate-stand-in/source_policy.h"

#include <algorithm>
#include <charconv>
#include <memory>

#include "stand-in-policy/policy_model.h"
#include "util/utf8.h"

namespace korvane::translate_stand_in {
namespace {

constexpr std::string_view kFirstLine = "korvane-policy 1";
constexpr std::string_view kApplicationFirstLine = "korvane-application 1";
constexpr std::string_view kIdsFirstLine = "korvane-ids-policy 1";
constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kOpen = "$(";
// Stands for an address until the line is repeated; no line may hold it.
constexpr char kAddressMark = '\x01';

std::string_view trimmed(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

// Cuts the first word off.
std::string_view nextWord(std::string_view& text) {
  text = trimmed(text);
  const std::string_view word = text.substr(0, text.find_first_of(kBlanks));
  text = trimmed(text.substr(word.size()));
  return word;
}

std::string_view nextLine(std::string_view& text) {
  const size_t end = std::min(text.find('\n'), text.size());
  std::string_view line = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  if (line.ends_with('\r')) line.remove_suffix(1);
  return line;
}

struct TroubleWord {
  std::string_view word;
  Trouble::Kind kind;
  bool hasCode;
};

constexpr TroubleWord kTroubles[] = {
    {"fail", Trouble::Kind::fail, true},
    {"fail-empty", Trouble::Kind::failEmpty, true},
    {"fail-silent", Trouble::Kind::failSilent, true},
    {"crash", Trouble::Kind::crash, false},
    {"hang", Trouble::Kind::hang, false},
    {"no-output", Trouble::Kind::noOutput, false},
    {"no-items", Trouble::Kind::noItems, false},
    {"damaged-items", Trouble::Kind::damagedItems, false},
};

bool parseExitCode(std::string_view& text, int& code) {
  const std::string_view word = nextWord(text);
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), code);
  return error == std::errc() && end == word.data() + word.size() && code >= 1 && code <= 255;
}

bool sameThing(const RetransItem& a, const RetransItem& b) {
  return a.kind == b.kind && a.key == b.key && a.name == b.name;
}

std::vector<std::string> splitList(const std::string& list) {
  std::vector<std::string> parts;
  for (size_t at = 0; at < list.size();) {
    const size_t end = std::min(list.find(',', at), list.size());
    parts.push_back(list.substr(at, end - at));
    at = end + 1;
  }
  return parts;
}

}  // namespace

bool SourcePolicy::fail(const std::string& reason) {
  _made.problem = "The policy is malformed";
  if (_at.line > 0) _made.problem += " in line " + std::to_string(_at.line);
  if (_at.entry) _made.problem += " of " + *_at.entry;
  _made.problem += ": " + reason;
  return false;
}

// What this machine has in place of a reference may be of several lines.
void SourcePolicy::put(std::string_view line) {
  _made.policy += line;
  _made.policy += '\n';
  const auto lines = 1 + std::count(line.begin(), line.end(), '\n');
  _origins.insert(_origins.end(), static_cast<size_t>(lines), _at);
}

std::string SourcePolicy::lastKnown(const RetransItem& item) const {
  const auto found = std::find_if(_previous.begin(), _previous.end(),
                                  [&](const RetransItem& each) { return sameThing(each, item); });
  return found == _previous.end() ? "" : found->value;
}

const RetransItem& SourcePolicy::itemFor(RetransItem item) {
  const auto found = std::find_if(_made.items.begin(), _made.items.end(),
                                  [&](const RetransItem& each) { return sameThing(each, item); });
  if (found != _made.items.end()) return *found;
  if (!_machine.read(item)) item.present = false;
  if (!item.present) item.value = lastKnown(item);
  return _made.items.emplace_back(std::move(item));
}

bool SourcePolicy::resolve(std::string_view reference, std::optional<std::string>& text) {
  constexpr std::string_view kEnvironment = "env:";
  constexpr std::string_view kRegistry = "registry:";
  RetransItem item;
  if (reference == "address") {
    item.kind = RetransItem::Kind::addresses;
    text = itemFor(item).value.empty() ? std::nullopt : std::optional(std::string{kAddressMark});
    return true;
  }
  if (reference.starts_with(kEnvironment)) {
    item.kind = RetransItem::Kind::environment;
    item.name = reference.substr(kEnvironment.size());
  } else if (reference.starts_with(kRegistry)) {
    reference.remove_prefix(kRegistry.size());
    const size_t bar = reference.rfind('|');
    if (bar == std::string_view::npos || bar == 0) return fail("a registry value without a key");
    item.kind = RetransItem::Kind::registry;
    item.key = reference.substr(0, bar);
    item.name = reference.substr(bar + 1);
  } else {
    return fail("an unknown reference");
  }
  if (item.name.empty() && item.key.empty()) return fail("a reference without a name");
  const RetransItem& known = itemFor(std::move(item));
  text = known.present || !known.value.empty() ? std::optional(known.value) : std::nullopt;
  return true;
}

bool SourcePolicy::expand(std::string_view line, std::vector<std::string>& out) {
  std::string text;
  bool complete = true;
  for (size_t at = line.find(kOpen); at != std::string_view::npos; at = line.find(kOpen)) {
    const size_t end = line.find(')', at);
    if (end == std::string_view::npos) return fail("a reference without its end");
    std::optional<std::string> value;
    if (!resolve(line.substr(at + kOpen.size(), end - at - kOpen.size()), value)) return false;
    text += line.substr(0, at);
    text += value.value_or("");
    complete &= value.has_value();
    line.remove_prefix(end + 1);
  }
  text += line;
  const size_t mark = text.find(kAddressMark);
  if (mark != text.rfind(kAddressMark)) return fail("a second address in one rule");
  if (!complete) return true;
  if (mark == std::string::npos) {
    out.push_back(text);
    return true;
  }
  for (const std::string& address :
       splitList(itemFor({RetransItem::Kind::addresses, {}, {}, false, {}}).value))
    out.push_back(text.substr(0, mark) + address + text.substr(mark + 1));
  return true;
}

bool SourcePolicy::parseRule(std::string_view rule) {
  std::vector<std::string> rules;
  if (!expand(rule, rules)) return false;
  for (const std::string& each : rules) put(each);
  if (_made.policy.size() > KVP_MAX_TEXT_BYTES) return fail("the translation is too large");
  return true;
}

bool SourcePolicy::parseConditionalRule(std::string_view line) {
  const size_t end = line.starts_with('"') ? line.find('"', 1) : std::string_view::npos;
  if (end == std::string_view::npos || end == 1) return fail("a path in quotes is missing");
  std::vector<std::string> paths;
  if (!expand(line.substr(1, end - 1), paths)) return false;
  const std::string_view rule = trimmed(line.substr(end + 1));
  for (const std::string& path : paths)
    if (itemFor({RetransItem::Kind::path, {}, path, false, {}}).present && !parseRule(rule))
      return false;
  return true;
}

bool SourcePolicy::parseDirective(std::string_view directive) {
  const std::string_view word = nextWord(directive);
  if (word == "ids-answer") {
    _idsAnswer = directive;
    return true;
  }
  const auto* known = std::find_if(std::begin(kTroubles), std::end(kTroubles),
                                   [&](const TroubleWord& each) { return each.word == word; });
  if (known == std::end(kTroubles)) return fail("an unknown word after stand-in");
  Trouble trouble{known->kind, 0, {}};
  if (known->hasCode && !parseExitCode(directive, trouble.code))
    return fail("no exit code from 1 to 255");
  trouble.text = directive;
  if (_made.trouble.kind == Trouble::Kind::none) _made.trouble = trouble;
  return true;
}

bool SourcePolicy::parseLine(std::string_view line) {
  std::string_view rest = line;
  const std::string_view word = nextWord(rest);
  if (!isValidUtf8(line)) return fail("text that is not UTF-8");
  if (line.find(kAddressMark) != std::string_view::npos ||
      line.find('\0') != std::string_view::npos)
    return fail("a control character");
  if (word == "stand-in") return parseDirective(rest);
  if (word == "rule") return parseRule(line);
  if (word == "when") return parseConditionalRule(rest);
  if (_at.entry) return fail("an application's policy has rules alone");
  put(line);
  return true;
}

// The driver's own rules, told with the line of the source.
void SourcePolicy::check() {
  _at = {};
  if (retransItemsText(_made.items).size() > kMaxItemsBytes) {
    fail("the items are too large");
    return;
  }
  const auto parsed = std::make_unique<kvp_policy>();
  kvp_error error{};
  if (kvp_parse(_made.policy.data(), _made.policy.size(), parsed.get(), &error) == 0) return;
  if (error.line > 0) _at = _origins[error.line - 1];
  fail(error.reason);
}

void SourcePolicy::parseText(std::string_view text) {
  if (text.size() > KVP_MAX_TEXT_BYTES) fail("the policy is too large");
  while (_made.problem.empty() && !text.empty()) {
    const std::string_view line = trimmed(nextLine(text));
    ++_at.line;
    if (line.empty() || line.starts_with('#')) continue;
    if (line.size() > KVP_MAX_LINE_BYTES)
      fail("the line is too long");
    else if (parseLine(line) && _made.items.size() > kMaxItems)
      fail("it refers to too much");
  }
}

void SourcePolicy::addApplication(const ApplicationPart& part) {
  _at = {&part.entry, 1};
  std::string_view text = part.text;
  if (trimmed(nextLine(text)) != kApplicationFirstLine)
    fail("the first line must be \"" + std::string(kApplicationFirstLine) + "\"");
  parseText(text);
}

Translation SourcePolicy::translate(const Source& source) {
  parseText(source.text);
  for (const ApplicationPart& part : source.applications)
    if (_made.problem.empty()) addApplication(part);
  if (_made.problem.empty()) check();
  if (_made.problem.empty() && _target == Target::ids) {
    _made.policy.replace(0, kFirstLine.size(), kIdsFirstLine);
    if (!_idsAnswer.empty()) _made.policy += "answer " + _idsAnswer + "\n";
  }
  return std::move(_made);
}

}  // namespace korvane::translate_stand_in
