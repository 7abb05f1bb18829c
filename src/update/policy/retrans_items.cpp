#include "update/policy/retrans_items.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "util/utf8.h"

namespace korvane {
namespace {

constexpr std::string_view kFirstLine = "korvane-items 1";
constexpr std::string_view kPresent = "present";
constexpr std::string_view kMissing = "missing";
constexpr char kEscape = '%';
constexpr char kHexDigits[] = "0123456789ABCDEF";

struct KindWord {
  RetransItem::Kind kind;
  std::string_view word;
  size_t fields;  // the kind's word and the state included
};

constexpr KindWord kKinds[] = {
    {RetransItem::Kind::path, "path", 3},
    {RetransItem::Kind::environment, "environment", 4},
    {RetransItem::Kind::registry, "registry", 5},
    {RetransItem::Kind::addresses, "addresses", 3},
};

bool mustBeEscaped(char c) {
  return static_cast<unsigned char>(c) < 0x20 || c == 0x7F || c == kEscape;
}

std::string escaped(std::string_view text) {
  std::string out;
  for (const char c : text) {
    if (!mustBeEscaped(c)) {
      out += c;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    out += {kEscape, kHexDigits[byte >> 4], kHexDigits[byte & 15]};
  }
  return out;
}

// The text of a field, or nothing when it is malformed.
std::optional<std::string> unescaped(std::string_view field) {
  std::string out;
  for (size_t at = 0; at < field.size(); ++at) {
    if (field[at] != kEscape) {
      if (mustBeEscaped(field[at])) return std::nullopt;
      out += field[at];
      continue;
    }
    unsigned byte = 0;
    const char* digits = field.data() + at + 1;
    if (field.size() - at < 3) return std::nullopt;
    const auto [end, error] = std::from_chars(digits, digits + 2, byte, 16);
    if (error != std::errc() || end != digits + 2 || byte == 0) return std::nullopt;
    out += static_cast<char>(byte);
    at += 2;
  }
  if (out.size() > kMaxItemFieldBytes) return std::nullopt;
  return isValidUtf8(out) ? std::optional(std::move(out)) : std::nullopt;
}

std::string_view cut(std::string_view& text, char separator) {
  const size_t end = std::min(text.find(separator), text.size());
  const std::string_view part = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return part;
}

class Reader {
 public:
  Reader(std::string_view text, RetransItems& out, ItemsProblem& problem)
      : _rest(text), _out(out), _problem(problem) {}

  bool read() {
    if (_rest.size() > kMaxItemsBytes) return fail("the file is too large");
    if (nextLine() != kFirstLine) return fail("not an items file of format 1");
    while (!_rest.empty()) {
      const std::string_view line = nextLine();
      if (line.starts_with("end ")) return readEnd(line.substr(4));
      if (!readItem(line)) return false;
    }
    _line = 0;
    return fail("the last line is missing");
  }

 private:
  bool fail(std::string reason) {
    _problem = {_line, std::move(reason)};
    return false;
  }

  std::string_view nextLine() {
    ++_line;
    std::string_view line = cut(_rest, '\n');
    if (line.ends_with('\r')) line.remove_suffix(1);
    return line;
  }

  bool readEnd(std::string_view count) {
    if (count != std::to_string(_out.size())) return fail("the number of items does not match");
    return _rest.empty() || fail("there is data after the last line");
  }

  bool readItem(std::string_view line) {
    if (_out.size() == kMaxItems) return fail("too many items");
    std::vector<std::string> fields;
    do {
      const std::optional<std::string> field = unescaped(cut(line, '\t'));
      if (!field) return fail("a malformed field");
      fields.push_back(*field);
    } while (!line.empty() && fields.size() <= 5);
    const auto kind = std::find_if(std::begin(kKinds), std::end(kKinds),
                                   [&](const KindWord& each) { return each.word == fields[0]; });
    if (kind == std::end(kKinds)) return fail("an unknown kind of item");
    return parseItem(*kind, std::move(fields));
  }

  // The trailing field may be empty, and its tab left out with it.
  bool parseItem(const KindWord& kind, std::vector<std::string> fields) {
    const bool hasValue = kind.kind != RetransItem::Kind::path;
    if (hasValue && fields.size() + 1 == kind.fields) fields.emplace_back();
    if (fields.size() != kind.fields) return fail("wrong number of fields");
    if (fields[1] != kPresent && fields[1] != kMissing) return fail("an unknown state");
    RetransItem item{kind.kind, {}, {}, fields[1] == kPresent, {}};
    if (hasValue) item.value = std::move(fields.back());
    if (kind.kind == RetransItem::Kind::registry) item.key = std::move(fields[2]);
    if (kind.kind == RetransItem::Kind::registry) item.name = std::move(fields[3]);
    if (kind.kind == RetransItem::Kind::path || kind.kind == RetransItem::Kind::environment)
      item.name = std::move(fields[2]);
    if (item.name.empty() && item.key.empty() && kind.kind != RetransItem::Kind::addresses)
      return fail("an item without a name");
    _out.push_back(std::move(item));
    return true;
  }

  std::string_view _rest;
  RetransItems& _out;
  ItemsProblem& _problem;
  size_t _line = 0;
};

std::string itemLine(const RetransItem& item) {
  const auto* kind = std::find_if(std::begin(kKinds), std::end(kKinds),
                                  [&](const KindWord& each) { return each.kind == item.kind; });
  std::string line(kind->word);
  line += '\t';
  line += item.present ? kPresent : kMissing;
  if (item.kind == RetransItem::Kind::registry) line += '\t' + escaped(item.key);
  if (item.kind != RetransItem::Kind::addresses) line += '\t' + escaped(item.name);
  if (item.kind != RetransItem::Kind::path) line += '\t' + escaped(item.value);
  return line + '\n';
}

}  // namespace

bool parseRetransItems(std::string_view text, RetransItems& out, ItemsProblem& problem) {
  out.clear();
  if (Reader(text, out, problem).read()) return true;
  out.clear();
  return false;
}

std::string retransItemsText(const RetransItems& items) {
  std::string text = std::string(kFirstLine) + '\n';
  for (const RetransItem& item : items) text += itemLine(item);
  return text + "end " + std::to_string(items.size()) + '\n';
}

std::string addressList(std::vector<std::string> addresses) {
  std::sort(addresses.begin(), addresses.end());
  addresses.erase(std::unique(addresses.begin(), addresses.end()), addresses.end());
  std::string list;
  for (const std::string& address : addresses) list += (list.empty() ? "" : ",") + address;
  return list;
}

}  // namespace korvane
