// The examples of a page about one of the channels, asked of the real server in the order
// of the page.
//
// Lines "> {...}" are requests, "< {...}" the answer to the one before; "..." stands for any text,
// and as a member or list entry for further ones.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "rpc/fifo.h"
#include "rpc/json_text.h"

namespace korvane::tests {

inline constexpr char kAnything[] = "...";

struct Example {
  int line;
  std::string request, answer;
};

inline std::vector<Example> examplesOf(const char* page) {
  std::ifstream file(page);
  std::vector<Example> examples;
  int number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    if (line.starts_with("> {")) examples.push_back({number, line.substr(2), ""});
    if (line.starts_with("< {") && !examples.empty()) examples.back().answer = line.substr(2);
  }
  return examples;
}

// Empty when the answer is as the example shows it, else the path of the first difference.
inline std::string difference(const JsonTree& shown, const JsonTree& answer,
                              const std::string& path) {
  if (shown.data() == kAnything) return {};
  if (shown.data() != answer.data()) return path + ": \"" + answer.data() + '"';
  auto next = answer.begin();
  for (const auto& [name, child] : shown) {
    if (name == kAnything || child.get_child_optional(kAnything)) return {};
    if (next == answer.end()) return path + " lacks " + name;
    if (next->first != name) return path + " has " + next->first + " in place of " + name;
    const std::string inside = difference(child, next->second, path + "." + name);
    if (!inside.empty()) return inside;
    ++next;
  }
  return next == answer.end() ? "" : path + " has more: " + next->first;
}

// The methods that the examples call.
inline std::set<std::string> runExamples(const char* page, Fifo& client, int timeoutMs) {
  std::set<std::string> methods;
  for (const Example& example : examplesOf(page)) {
    SCOPED_TRACE(std::string(page) + ":" + std::to_string(example.line));
    std::string text;
    JsonTree shown, answer;
    EXPECT_TRUE(client.open() && client.writeMessage(example.request, timeoutMs) &&
                client.readMessage(text, timeoutMs, timeoutMs));
    EXPECT_TRUE(parseJson(example.answer, shown) && parseJson(text, answer)) << text;
    EXPECT_EQ(difference(shown, answer, "answer"), "") << text;
    if (parseJson(example.request, shown)) methods.insert(shown.get("name", ""));
  }
  return methods;
}

}  // namespace korvane::tests
