// The conversations of this folder's *.txt files as they stand there, and what their lines mean:
// answers, properties, counts. FORMAT.md says how they are written.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/scripted_server.h"
#include "tests/support/zip_maker.h"

namespace korvane::tests {

struct Line {
  // The line's next word, taken off `rest`.
  std::string next() {
    const size_t end = std::min(rest.find(' '), rest.size());
    const std::string taken = rest.substr(0, end);
    rest.erase(0, end + 1);
    return taken;
  }

  std::string at;    // file and number
  std::string word;  // the first one
  std::string rest;
  std::vector<std::string> body;  // the indented lines below
};

struct Conversation {
  std::string subject, name;
  std::vector<Line> lines;
  friend void PrintTo(const Conversation& of, std::ostream* out) { *out << of.name; }
};

inline std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream >> std::ws, part, separator);)
    if (!part.empty()) parts.push_back(part);
  return parts;
}

inline std::vector<std::string> itemsOf(std::string text) {
  std::vector<std::string> items;
  for (size_t end; (end = text.find("; ")) != std::string::npos; text.erase(0, end + 2))
    items.push_back(text.substr(0, end));
  items.push_back(text);
  return items;
}

// A line of the file as lines of the conversation: more than one where it names several settings.
inline std::vector<Line> linesOf(const std::string& at, const std::string& text) {
  Line line{at, "", text, {}};
  line.word = line.next();
  if (line.word == "->" || line.word == "<-:") {
    const size_t colon = text.find(": ");
    if (colon == std::string::npos) return {line};
    line = {at, "", text.substr(0, colon), itemsOf(text.substr(colon + 2))};
    line.word = line.next();
    return {line};
  }
  if (line.word != "stored" && line.word != "fallback" && line.word != "setting") return {line};
  std::vector<Line> lines;
  for (const std::string& item : itemsOf(line.rest)) lines.push_back({at, line.word, item, {}});
  return lines;
}

inline void read(std::istream& file, const std::string& subject, std::vector<Conversation>& all) {
  int number = 0;
  for (std::string text; std::getline(file, text);) {
    ++number;
    const size_t begin = text.find_first_not_of(' ');
    if (begin == std::string::npos || text[begin] == '#') continue;
    if (text.starts_with("== ")) {
      all.push_back({subject, text.substr(3), {}});
    } else if (begin > 0) {
      Line& above = all.back().lines.back();
      const std::string items = text.substr(begin);
      const auto more = above.word == "file" ? std::vector{items} : itemsOf(items);
      above.body.insert(above.body.end(), more.begin(), more.end());
    } else {
      const auto lines = linesOf(subject + ".txt:" + std::to_string(number), text);
      all.back().lines.insert(all.back().lines.end(), lines.begin(), lines.end());
    }
  }
}

inline std::vector<Conversation> readAll() {
  std::vector<Conversation> all;
  for (const auto& entry : std::filesystem::directory_iterator(KORVANE_CONVERSATIONS)) {
    if (entry.path().extension() != ".txt" || entry.path().stem() == "CMakeLists") continue;
    std::ifstream file(entry.path());
    read(file, entry.path().stem().string(), all);
  }
  std::stable_sort(all.begin(), all.end(), [](const Conversation& a, const Conversation& b) {
    return a.subject < b.subject;
  });
  return all;
}

inline Answer answerOf(Line line) {
  std::string properties, parts;
  const std::string kind = line.next();
  const int code = std::atoi(line.next().c_str());
  if (kind == "fail") return Answer::failure(code);
  if (kind == "http") return Answer::http(code);
  const auto section = [](const std::string& format, const std::string& name,
                          const std::string& bytes) {
    return "Data-Format=" + format + "\nData-Type=" + name +
           "\nData-Length=" + std::to_string(bytes.size()) + "\n\n" + bytes + "\n";
  };
  for (const std::string& item : line.body) {
    const size_t times = item.find("=[x ");
    if (item.starts_with("[policy ")) {
      parts += section("binary/zip", "policy", item.substr(8, item.size() - 9));
    } else if (item.starts_with("[zip ")) {
      parts += section("binary/zip", "policy",
                       makeZip({{.name = item.substr(5, item.size() - 6), .content = "content"}}));
    } else if (item.starts_with("[keys ")) {
      for (int i = std::atoi(item.c_str() + 6); i > 0; --i)
        properties += "unknown.key." + std::to_string(i) + "=1\n";
    } else if (times != std::string::npos) {
      const auto length = static_cast<size_t>(std::atoi(item.c_str() + times + 4));
      properties += item.substr(0, times + 1) + std::string(length, 'x') + "\n";
    } else {
      properties += item + "\n";
    }
  }
  Answer answer;
  if (kind == "code") {
    answer.headers = "Korvane-Error: " + std::to_string(code) + "\r\n";
    if (!line.rest.empty()) parts += section("text/plain", "stacktrace", line.rest);
  }
  answer.body = (properties.empty() ? "" : section("text/plain", "properties", properties)) +
                parts + "EOF_FLAG\n";
  return answer;
}

// Whether the lines have what `wanted` says: "key=value", "key=*", "key~part", "!key",
// "!key=value".
inline bool holds(const std::vector<std::string>& lines, const std::string& wanted) {
  const bool absent = wanted[0] == '!';
  const size_t mark = std::min(wanted.find_first_of("=~"), wanted.size());
  const std::string key = wanted.substr(absent, mark - absent) + "=";
  const std::string value = wanted.substr(std::min(mark + 1, wanted.size()));
  for (const std::string& line : lines) {
    if (!line.starts_with(key)) continue;
    const std::string found = line.substr(key.size());
    if (absent && mark == wanted.size()) return false;
    return absent != (wanted[mark] == '~' ? found.find(value) != std::string::npos
                      : value == "*"      ? !found.empty()
                                          : found == value);
  }
  return absent || (wanted[mark] == '=' && value.empty());
}

// "xN" or "xN..M", taken off the front of `text`; without it at least 1.
struct Count {
  size_t low = 1, high = SIZE_MAX;

  static Count take(std::string& text) {
    Count count;
    if (text[0] != 'x') return count;
    const size_t end = std::min(text.find(' '), text.size()), dots = text.find("..");
    count.low = std::stoul(text.substr(1));
    count.high = dots < end ? std::stoul(text.substr(dots + 2)) : count.low;
    text.erase(0, end + 1);
    return count;
  }
  bool holds(size_t number) const { return number >= low && number <= high; }
};

}  // namespace korvane::tests
