#include "host/command_line.h"

namespace korvane::host {
namespace {

// Backslashes mean themselves, except before a quote, where each is doubled.
std::string quoted(const std::string& argument) {
  std::string text = "\"";
  size_t backslashes = 0;
  for (const char c : argument) {
    if (c == '"') text.append(backslashes + 1, '\\');
    backslashes = c == '\\' ? backslashes + 1 : 0;
    text += c;
  }
  return text.append(backslashes, '\\') + '"';
}

}  // namespace

std::string commandLine(const std::vector<std::string>& arguments) {
  std::string line;
  for (const std::string& argument : arguments) {
    const bool plain = !argument.empty() && argument.find_first_of(" \t\"") == std::string::npos;
    if (line.empty())
      line = quoted(argument);
    else
      line += ' ' + (plain ? argument : quoted(argument));
  }
  return line;
}

std::string programOf(const std::string& commandLine) {
  const bool isQuoted = commandLine.starts_with('"');
  const std::string rest = commandLine.substr(isQuoted ? 1 : 0);
  const std::string path = rest.substr(0, rest.find(isQuoted ? '"' : ' '));
  return path.substr(path.find_last_of("\\/") + 1);
}

}  // namespace korvane::host
