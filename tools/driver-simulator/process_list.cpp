#include "driver-simulator/process_list.h"

#include <charconv>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

namespace korvane::simulator {
namespace {

namespace fs = std::filesystem;

std::optional<ProcessEntry> readProcess(const fs::path& directory, uint32_t id) {
  std::ifstream file(directory / "stat");
  std::stringstream content;
  content << file.rdbuf();
  const std::string stat = content.str();
  // "PID (name) state parent ...", where the name may hold blanks and brackets.
  const size_t open = stat.find('(');
  const size_t close = stat.rfind(')');
  if (open == std::string::npos || close == std::string::npos) return std::nullopt;
  std::istringstream rest(stat.substr(close + 1));
  std::string state;
  ProcessEntry entry{id, 0, {}};
  rest >> state >> entry.parent;
  std::error_code error;
  const fs::path image = fs::read_symlink(directory / "exe", error);
  entry.image = error ? stat.substr(open + 1, close - open - 1) : image.string();
  return entry;
}

}  // namespace

std::vector<ProcessEntry> listProcesses() {
  std::vector<ProcessEntry> all;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator("/proc", error)) {
    const std::string name = entry.path().filename().string();
    uint32_t id = 0;
    const auto [end, failed] = std::from_chars(name.data(), name.data() + name.size(), id);
    if (failed != std::errc() || end != name.data() + name.size()) continue;
    if (auto process = readProcess(entry.path(), id)) all.push_back(std::move(*process));
  }
  return all;
}

}  // namespace korvane::simulator
