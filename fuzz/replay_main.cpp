// Replays a fuzz corpus: every file of the given folders goes through the target once, whole and
// cut at every power-of-two length. Without libFuzzer this is the target's program.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void feed(const std::string& bytes, size_t size) {
  // A heap copy of the exact size, so that a sanitizer sees a read behind the end.
  const std::string input = bytes.substr(0, size);
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
}

size_t replay(const std::filesystem::path& folder) {
  size_t files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (!entry.is_regular_file()) continue;
    std::ifstream file(entry.path(), std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)),
                            std::istreambuf_iterator<char>());
    feed(bytes, bytes.size());
    for (size_t size = 1; size < bytes.size(); size *= 2) feed(bytes, size);
    ++files;
  }
  return files;
}

}  // namespace

int main(int argc, char** argv) {
  size_t files = 0;
  feed("", 0);
  for (int i = 1; i < argc; ++i) files += replay(argv[i]);
  std::printf("%zu corpus files replayed\n", files);
  return files > 0 ? 0 : 1;
}
