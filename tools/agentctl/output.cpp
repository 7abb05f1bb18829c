#include "agentctl/output.h"

#include <algorithm>
#include <iostream>

namespace korvane::agentctl {

void note(const std::string& text) {
  std::cout << std::flush;
  std::cerr << "agentctl: note: " << text << "\n";
}

size_t width(const std::string& text) {
  return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  }));
}

std::string columns(const std::vector<std::vector<std::string>>& rows, size_t indent) {
  std::vector<size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], width(row[i]));
  }
  std::string out;
  for (const auto& row : rows) {
    std::string line(indent, ' ');
    for (size_t i = 0; i < row.size(); ++i) {
      line += row[i];
      if (i + 1 < row.size()) line.append(widths[i] - width(row[i]) + 2, ' ');
    }
    out += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
  }
  return out;
}

}  // namespace korvane::agentctl
