#include "trust/manifest.h"

#include <algorithm>
#include <array>
#include <chrono>

#include "trust/envelope.h"
#include "util/base64.h"
#include "util/sha256.h"
#include "util/utf8.h"

namespace korvane::trust {
namespace {

constexpr std::array<const char*, 6> kKinds{
    {"policy", "ids-policy", "application-policy", "content", "software", "signers"}};
constexpr size_t kMaxName = 128;
constexpr size_t kMaxEntryName = 1024;
constexpr size_t kMaxEntries = 4096;

bool isName(std::string_view text, size_t longest) {
  const auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; };
  return !text.empty() && text.size() <= longest && isValidUtf8(text) &&
         std::none_of(text.begin(), text.end(), isControl);
}

bool isDigest(std::string_view text) {
  return text.size() == kSha256Digits &&
         text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

// "2026-11-22T00:00:00Z"
bool parseDate(std::string_view text, int64_t& outMs) {
  constexpr std::string_view kForm = "dddd-dd-ddTdd:dd:ddZ";
  std::array<unsigned, 6> parts{};
  if (text.size() != kForm.size()) return false;
  size_t part = 0;
  for (size_t i = 0; i < kForm.size(); ++i) {
    const bool digit = text[i] >= '0' && text[i] <= '9';
    if (kForm[i] == 'd' ? !digit : text[i] != kForm[i]) return false;
    if (digit)
      parts[part] = parts[part] * 10 + static_cast<unsigned>(text[i] - '0');
    else
      ++part;
  }
  namespace chrono = std::chrono;
  const chrono::year_month_day date{chrono::year(static_cast<int>(parts[0])),
                                    chrono::month(parts[1]), chrono::day(parts[2])};
  if (!date.ok() || parts[3] > 23 || parts[4] > 59 || parts[5] > 59) return false;
  const auto time = chrono::sys_days(date).time_since_epoch() + chrono::hours(parts[3]) +
                    chrono::minutes(parts[4]) + chrono::seconds(parts[5]);
  outMs = chrono::duration_cast<chrono::milliseconds>(time).count();
  return true;
}

class Lines {
 public:
  explicit Lines(std::string_view text) : _rest(text) {}

  size_t number() const { return _number; }
  bool atEnd() const { return _rest.empty(); }

  // The rest of the next line, which begins with this word.
  [[nodiscard]] bool value(std::string_view word, std::string_view& out) {
    ++_number;
    std::string_view found;
    return cutUntil('\n', _rest, out) && cutUntil(' ', out, found) && found == word;
  }
  [[nodiscard]] bool number(std::string_view word, uint64_t& out) {
    std::string_view text;
    return value(word, text) && parseNumber(text, out);
  }
  [[nodiscard]] bool date(std::string_view word, int64_t& outMs) {
    std::string_view text;
    return value(word, text) && parseDate(text, outMs);
  }
  [[nodiscard]] bool sum(std::string_view word, bool named, Sum& out) {
    std::string_view text, size, digest;
    if (!value(word, text) || !cutUntil(' ', text, size) || !parseNumber(size, out.size))
      return false;
    if (named && !(cutUntil(' ', text, digest) && isName(text, kMaxEntryName))) return false;
    if (!named) digest = text;
    if (!isDigest(digest)) return false;
    out.sha256 = digest;
    if (named) out.name = text;
    return true;
  }
  bool begins(std::string_view word) const { return _rest.starts_with(word); }
  [[nodiscard]] bool line(std::string_view whole) {
    ++_number;
    std::string_view found;
    return cutUntil('\n', _rest, found) && found == whole;
  }

 private:
  std::string_view _rest;
  size_t _number = 0;
};

bool parseHead(Lines& lines, Manifest& out) {
  std::string_view kind, name;
  uint64_t minimum = 0;
  if (!lines.line("korvane-manifest 1") || !lines.value("kind", kind) ||
      !kindNamed(kind, out.kind) || !lines.value("name", name) || !isName(name, kMaxName) ||
      !lines.number("version", out.version) || out.version == 0 ||
      !lines.date("not-before", out.notBeforeMs) || !lines.date("not-after", out.notAfterMs) ||
      out.notAfterMs < out.notBeforeMs || !lines.number("minimum-signers", minimum) ||
      minimum == 0 || minimum > kMaxSigners)
    return false;
  out.name = name;
  out.minimumSigners = static_cast<unsigned>(minimum);
  return true;
}

bool parseSigners(Lines& lines, Manifest& out) {
  do {
    std::string_view text;
    std::string der;
    if (out.signers.size() == kMaxSigners || !lines.value("signer", text) ||
        !decodeBase64(text, der) || !isCertificate(der))
      return false;
    out.signers.push_back(std::move(der));
  } while (lines.begins("signer "));
  return true;
}

bool parseSums(Lines& lines, Manifest& out) {
  if (!lines.sum("content", false, out.content)) return false;
  while (lines.begins("entry ")) {
    Sum entry;
    if (out.entries.size() == kMaxEntries || !lines.sum("entry", true, entry)) return false;
    out.entries.push_back(entry);
  }
  return true;
}

}  // namespace

const char* nameOf(Kind kind) {
  return kKinds.at(static_cast<size_t>(kind));
}

bool kindNamed(std::string_view name, Kind& out) {
  const auto found = std::find(kKinds.begin(), kKinds.end(), name);
  if (found == kKinds.end()) return false;
  out = static_cast<Kind>(found - kKinds.begin());
  return true;
}

size_t parseManifest(std::string_view text, Manifest& out) {
  Lines lines(text);
  const bool whole =
      parseHead(lines, out) &&
      (out.kind == Kind::signers ? parseSigners(lines, out) : parseSums(lines, out)) &&
      lines.line("end");
  if (!whole) return lines.number();
  return lines.atEnd() ? 0 : lines.number() + 1;
}

}  // namespace korvane::trust
