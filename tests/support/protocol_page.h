// The examples of docs/protocol.md: the fenced blocks, each with the words behind its fence, which
// say what it is ("request register", "answer 400", "http log").
#pragma once

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace korvane::tests {

struct PageBlock {
  std::vector<std::string> label;
  std::string text;
};

inline std::vector<PageBlock> blocksOf(const std::string& path) {
  std::ifstream file(path);
  std::vector<PageBlock> blocks;
  bool inside = false;
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("```")) {
      inside = !inside;
      if (!inside) continue;
      PageBlock& block = blocks.emplace_back();
      std::istringstream words(line.substr(3));
      for (std::string word; words >> word;) block.label.push_back(word);
    } else if (inside) {
      blocks.back().text += line + "\n";
    }
  }
  return blocks;
}

}  // namespace korvane::tests
