#include "ids-writer/settings_file.h"

#include <algorithm>
#include <cerrno>
#include <memory>

#include "platform/files.h"
#include "platform/paths.h"
#include "platform/threading.h"
#include "util/errors.h"
#include "util/ignore_result.h"

namespace korvane::ids_writer {
namespace {

constexpr uint64_t kMaxSettingsBytes = 1 << 20;
constexpr uint32_t kLockPauseMs = 10;
constexpr int kLockAttempts = 500;

bool isLineOf(const std::string& line, std::string_view key) {
  return line.size() > key.size() && line.starts_with(key) && line[key.size()] == '=';
}

std::string settingsPath(platform::Platform& system, const std::string& directory) {
  return platform::joinPath(system.files, {directory, "ids.properties"});
}

std::unique_ptr<platform::FileLock> lockSettings(platform::Platform& system,
                                                 const std::string& path) {
  std::unique_ptr<platform::FileLock> lock;
  const auto never = system.threading.createEvent(true, false);
  for (int attempt = 1;; ++attempt) {
    const int error = system.files.lock(path, lock);
    if (error == 0) return lock;
    if (error != EACCES || attempt == kLockAttempts) failFile(error, "lock", path);
    never->wait(kLockPauseMs);
  }
}

}  // namespace

void failFile(int error, const char* operation, const std::string& path) {
  throw FileError(error, operation,
                  std::string(operation) + " " + path + " failed, error " + std::to_string(error));
}

std::string readSettings(platform::Platform& system, const std::string& directory) {
  std::string text;
  // A file that is not there has no settings.
  ignoreResult(platform::readWholeFile(system.files, settingsPath(system, directory),
                                       kMaxSettingsBytes, text));
  return text;
}

void changeSettings(platform::Platform& system, const std::string& directory,
                    const std::function<std::string(const std::string&)>& change) {
  const std::string path = settingsPath(system, directory);
  const auto lock = lockSettings(system, path + ".lock");
  const std::string settings = change(readSettings(system, directory));
  if (const int error = platform::writeFileAtomically(system.files, path, settings); error != 0)
    failFile(error, "write", path);
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find('\n', at), text.size());
    lines.push_back(text.substr(at, end - at));
    if (!lines.back().empty() && lines.back().back() == '\r') lines.back().pop_back();
    at = end + 1;
  }
  return lines;
}

std::string settingIn(const std::string& text, std::string_view key) {
  for (const std::string& line : linesOf(text))
    if (isLineOf(line, key)) return line.substr(key.size() + 1);
  return {};
}

std::string withSetting(const std::string& text, std::string_view key, const std::string& value) {
  std::string out;
  for (const std::string& line : linesOf(text))
    if (!isLineOf(line, key)) out += line + "\n";
  return out + std::string(key) + "=" + value + "\n";
}

}  // namespace korvane::ids_writer
