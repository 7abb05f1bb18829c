#include "bulk/log_names.h"

#include <algorithm>

#include "bulk/line_reader.h"
#include "platform/paths.h"
#include "util/dates.h"

namespace korvane::bulk {
namespace {

constexpr char kDigits[] = "0123456789";
constexpr std::string_view kSent = ".sent";
constexpr std::string_view kOwnBegin = "korvane-agent-";
constexpr std::string_view kOwnEnd = ".log";
// What the rules for paths from a server take for the end of a path.
constexpr char kNotInPaths[] = "\"'<>|,=";

size_t stemLength(std::string_view name) {
  const size_t dot = name.rfind('.');
  return dot == std::string_view::npos || dot == 0 ? name.size() : dot;
}

bool allDigits(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), isDigit);
}

// Without digits, or a '#', behind a dash at its end.
std::string_view withoutNumber(std::string_view stem, const char* numberCharacters) {
  const size_t last = stem.find_last_not_of(numberCharacters);
  const bool numbered = last != std::string_view::npos && last > 0 && last + 1 < stem.size() &&
                        (stem[last] == '-' || stem[last] == '_');
  return numbered ? stem.substr(0, last) : stem;
}

}  // namespace

std::string shapeOf(std::string_view fileName) {
  const auto hashed = [](std::string_view text) {
    std::string out;
    for (const char c : text) {
      if (!isDigit(c))
        out += c;
      else if (!out.ends_with('#'))
        out += '#';
    }
    return out;
  };
  const size_t stem = stemLength(fileName);
  return std::string(withoutNumber(hashed(fileName.substr(0, stem)), "#")) +
         hashed(fileName.substr(stem));
}

std::string nextName(std::string_view fileName, int64_t wallMs) {
  const size_t stem = stemLength(fileName);
  return std::string(withoutNumber(fileName.substr(0, stem), kDigits)) +
         expandDatePattern("-%M%S", wallMs).toUtf8() + std::string(fileName.substr(stem));
}

bool matches(std::string_view pattern, std::string_view name) {
  size_t p = 0, n = 0, star = std::string_view::npos, tried = 0;
  while (n < name.size()) {
    if (p < pattern.size() && pattern[p] == '*') {
      star = p++;
      tried = n;
    } else if (p < pattern.size() && (pattern[p] == '?' || pattern[p] == name[n])) {
      ++p, ++n;
    } else if (star != std::string_view::npos) {
      p = star + 1;
      n = ++tried;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*', p) == std::string_view::npos;
}

std::string_view nameOfSent(std::string_view fileName) {
  const size_t at = fileName.rfind(kSent);
  if (at == std::string_view::npos || at == 0) return {};
  const std::string_view rest = fileName.substr(at + kSent.size());
  const bool numbered = rest.starts_with('.') && allDigits(rest.substr(1));
  return rest.empty() || numbered ? fileName.substr(0, at) : std::string_view();
}

bool isOwnLog(std::string_view name) {
  if (!name.starts_with(kOwnBegin) || !name.ends_with(kOwnEnd) ||
      name.size() < kOwnBegin.size() + kStampDigits + 2 + kOwnEnd.size())
    return false;
  name = name.substr(kOwnBegin.size(), name.size() - kOwnBegin.size() - kOwnEnd.size());
  return allDigits(name.substr(0, kStampDigits)) && name[kStampDigits] == '-' &&
         allDigits(name.substr(kStampDigits + 1));
}

std::vector<std::string> entriesOf(std::string_view setting) {
  std::vector<std::string> entries;
  while (!setting.empty()) {
    const size_t end = std::min(setting.find(';'), setting.size());
    const std::string_view part = setting.substr(0, end);
    const size_t first = part.find_first_not_of(" \t");
    if (first != std::string_view::npos)
      entries.emplace_back(part.substr(first, part.find_last_not_of(" \t") - first + 1));
    setting.remove_prefix(std::min(end + 1, setting.size()));
  }
  return entries;
}

std::string entryFault(std::string_view entry) {
  if (entry.find_first_of(kNotInPaths) != std::string_view::npos)
    return "it holds a quote, a comma, an equals sign or one of < > |";
  if (platform::fileNameOf(entry).empty()) return "it names no file";
  if (platform::directoryOf(entry).find_first_of("*?") != std::string::npos)
    return "its folder holds a pattern";
  return {};
}

}  // namespace korvane::bulk
