// JSON texts and the property trees they stand for. Boost's parser and writer do the work; the text's size
// in the tree is bounded before the parser, which calls itself for every level, sees it.
//
// A property tree holds texts only: numbers and true, false, null are written between quotes, and an empty
// object or array as "". Thread-safe.
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

// False for what is no JSON text, or one beyond the bounds.
bool parseJson(std::string_view text, JsonTree& out);
// On one line, without a line feed. Throws when the tree cannot be written as JSON (a list with a text of
// its own).
std::string writeJson(const JsonTree& tree);

}  // namespace korvane
