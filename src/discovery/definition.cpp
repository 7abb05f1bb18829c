#include "discovery/definition.h"

#include <algorithm>
#include <iterator>

namespace korvane {
namespace {

// What a character counts as, in a pattern and in what is compared with it.
char counted(char c, bool foldCase) {
  if (foldCase && c >= 'A' && c <= 'Z') return static_cast<char>(c - 'A' + 'a');
  return c == '\\' ? '/' : c;
}

// The first byte of a character in UTF-8; of what is none, any.
bool beginsCharacter(char c) {
  return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
}

}  // namespace

Definition merged(const Definition& first, Definition second) {
  second.applications |= first.applications;
  second.services |= first.services;
  second.processes |= first.processes;
  second.ports |= first.ports;
  second.shortcuts |= first.shortcuts;
  const auto own = static_cast<std::ptrdiff_t>(second.files.size());
  for (const FileRoot& files : first.files) {
    const auto end = second.files.begin() + own;
    if (std::none_of(second.files.begin(), end, [&](auto& of) { return of.root == files.root; }))
      second.files.push_back(files);
  }
  return second;
}

bool matchesPattern(std::string_view text, std::string_view pattern, bool foldCase) {
  constexpr size_t kNone = std::string_view::npos;
  size_t at = 0, in = 0, star = kNone, resume = 0;
  while (at < text.size()) {
    if (in < pattern.size() && pattern[in] == '*') {
      star = in++;
      resume = at;
    } else if (in < pattern.size() && pattern[in] == '?') {
      do ++at;
      while (at < text.size() && !beginsCharacter(text[at]));
      ++in;
    } else if (in < pattern.size() &&
               counted(pattern[in], foldCase) == counted(text[at], foldCase)) {
      ++at, ++in;
    } else if (star != kNone) {
      in = star + 1;
      at = ++resume;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*', in) == kNone;
}

bool isExcluded(const FileRoot& root, std::string_view relative, std::string_view name,
                bool foldCase) {
  return std::any_of(root.excluded.begin(), root.excluded.end(), [&](const std::string& pattern) {
    const bool ofPath = pattern.find_first_of("/\\") != std::string::npos;
    return matchesPattern(ofPath ? relative : name, pattern, foldCase);
  });
}

}  // namespace korvane
