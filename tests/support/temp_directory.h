// A fresh directory of the real file system, removed with all that is in it at the end of
// its scope.
#pragma once

#include <filesystem>
#include <random>
#include <string>

namespace korvane::tests {

// A UTF-8 path as the standard library takes it on every system.
inline std::filesystem::path fsPath(const std::string& utf8) {
  return std::u8string(utf8.begin(), utf8.end());
}

class TempDirectory {
 public:
  TempDirectory() {
    std::random_device random;
    do {
      _path = std::filesystem::temp_directory_path() / ("korvane-test-" + std::to_string(random()));
    } while (!std::filesystem::create_directory(_path));
  }
  ~TempDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(_path, ignored);
  }
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;

  // Full path, UTF-8, without a separator at its end.
  std::string path() const {
    const std::u8string utf8 = _path.u8string();
    return {utf8.begin(), utf8.end()};
  }

 private:
  std::filesystem::path _path;
};

}  // namespace korvane::tests
