#include "host/messages.h"

#include <ctime>

#include "util/terminal_text.h"

namespace korvane::host {
namespace {

std::FILE* kept = nullptr;

std::string date() {
  char text[32] = "";
  const std::time_t now = std::time(nullptr);
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S ", std::localtime(&now));
  return text;
}

}  // namespace

void say(const std::string& line) {
  const std::string text = (kept ? date() : "") + "korvane-host: " + terminalText(line) + "\n";
  std::FILE* where = kept ? kept : stderr;
  std::fputs(text.c_str(), where);
  std::fflush(where);
}

void keepMessages(std::FILE* file) {
  kept = file;
}

}  // namespace korvane::host
