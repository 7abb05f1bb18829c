// The items file of a translated policy ("policy....trans"): the local facts that its translation
// depended on, as they were then. The translator writes it, the agent reads it;
// docs/file-formats.md has its lines.
//
// Value types and functions; nothing is kept. All texts are UTF-8.
// Errors: an ItemsProblem with the line, from 1, and the reason; 0 is the text as a whole.
//
//   RetransItems items;
//   ItemsProblem problem;
//   if (!parseRetransItems(text, items, problem)) ... problem.line, problem.reason
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace korvane {

struct RetransItem {
  enum class Kind { path, environment, registry, addresses };

  Kind kind = Kind::path;
  std::string key;   // registry: the key below HKEY_LOCAL_MACHINE
  std::string name;  // the path, the variable or the registry value; empty for addresses
  bool present = false;
  // Of a variable or a registry value, a number in decimal; the addresses, sorted, with commas. Of
  // what is missing: the value that was known last, or empty.
  std::string value;

  friend bool operator==(const RetransItem&, const RetransItem&) = default;
};

using RetransItems = std::vector<RetransItem>;

struct ItemsProblem {
  size_t line = 0;
  std::string reason;
};

inline constexpr size_t kMaxItemsBytes = 1 << 20;
inline constexpr size_t kMaxItems = 4096;
inline constexpr size_t kMaxItemFieldBytes = 32767;  // before escaping

// Replaces `out`; after an error it is empty.
[[nodiscard]] bool parseRetransItems(std::string_view text, RetransItems& out,
                                     ItemsProblem& problem);
// The file's text. What goes beyond the bounds is the caller's fault and is not read back.
std::string retransItemsText(const RetransItems& items);

// The addresses as an item holds them: each once, sorted.
std::string addressList(std::vector<std::string> addresses);

}  // namespace korvane
