// JSON texts and the property trees they stand for. Boost's parser and writer do the work;
// the text's size in the tree is bounded before the parser, which calls itself for every
// level, sees it.
//
// The forms that take their argument over are for large messages: they take texts of
// kLongTextBytes and more out of what Boost sees, and move them between message and tree in
// one piece. Both forms read and write the same.
//
// A property tree holds texts only: numbers and true, false, null are written between quotes, and
// an empty object or array as "". It cannot be moved, but swapped. Thread-safe.
#pragma once

#include <boost/property_tree/ptree.hpp>
#include <cstddef>
#include <string>
#include <string_view>

namespace korvane {

using JsonTree = boost::property_tree::ptree;

inline constexpr size_t kMaxJsonDepth = 64;
// Values in one text, counted by the commas, brackets and braces outside its strings.
inline constexpr size_t kMaxJsonValues = 50000;
inline constexpr size_t kLongTextBytes = 16 * 1024;

// False for what is not JSON text, or one beyond the bounds; `out` is as it was then.
[[nodiscard]] bool parseJson(std::string_view text, JsonTree& out);
[[nodiscard]] bool parseJson(std::string&& text, JsonTree& out);
[[nodiscard]] inline bool parseJson(const std::string& text, JsonTree& out) {
  return parseJson(std::string_view(text), out);
}
[[nodiscard]] inline bool parseJson(const char* text, JsonTree& out) {
  return parseJson(std::string_view(text), out);
}

// An empty list or object is an empty text in the tree. Where it must not be taken for one,
// this puts a list of one empty text in its place: from that depth on, the outermost object
// being 1. Well-formed texts stay so.
void markEmpty(std::string& text, size_t fromDepth);

// On one line, without a line feed. Throws when the tree cannot be written as JSON (a list
// with a text of its own).
std::string writeJson(const JsonTree& tree);
// Leaves the tree empty. Throws std::length_error when the text would be longer than that;
// it has not been written then.
std::string writeJson(JsonTree&& tree, size_t mostBytes);

}  // namespace korvane
