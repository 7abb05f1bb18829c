// The child of the process tests: exit N; hang; count ARG... (exit code: number of arguments, times
// ten, plus the number of blanks in them); parent FILE (starts one that hangs, writes its number into
// the file, and hangs).
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <string>

#include "platform/native.h"
#include "platform/processes.h"

namespace {

int hang() {
  std::promise<void>().get_future().wait();
  return 0;
}

int count(int argc, char** argv) {
  int blanks = 0;
  for (int i = 2; i < argc; ++i) {
    const std::string text = argv[i];
    blanks += static_cast<int>(std::count(text.begin(), text.end(), ' '));
  }
  return (argc - 2) * 10 + blanks;
}

int parent(const char* self, const char* file) {
  std::unique_ptr<korvane::platform::Process> child;
  const auto processes = korvane::platform::makeNativeProcesses();
  const std::string program = std::filesystem::absolute(self).string();
  if (processes->start(program, "hang", child) != 0) return 98;
  std::ofstream(file) << child->id() << "\n";
  return hang();
}

// Open descriptors beyond the standard ones; the directory that is read here is one of them.
int descriptors() {
  int open = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
    ++open;
  return open - 4;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  if (mode == "exit") return argc > 2 ? std::atoi(argv[2]) : 0;
  if (mode == "hang") return hang();
  if (mode == "count") return count(argc, argv);
  if (mode == "parent" && argc > 2) return parent(argv[0], argv[2]);
  if (mode == "descriptors") return descriptors();
  return 99;
}
