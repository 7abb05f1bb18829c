// What agentctl prints besides its answers. Everything is UTF-8.
#pragma once

#include <string>
#include <vector>

namespace korvane::agentctl {

// A line on the standard error output: something that the operator should know and that
// changes no result.
void note(const std::string& text);

// Rows in columns as wide as their longest text, two blanks between them; the last column is not
// filled up. `indent`: blanks before each row.
std::string columns(const std::vector<std::vector<std::string>>& rows, size_t indent = 0);

// The characters of a UTF-8 text.
size_t width(const std::string& text);

}  // namespace korvane::agentctl
