#include <windows.h>

#include <cstdlib>

#include "platform/library_variables.h"
#include "platform/program_entry.h"
#include "platform/wide_win.h"

namespace {

// Makes a console show UTF-8 for as long as the program runs.
class Utf8Console {
 public:
  Utf8Console() : _before(::GetConsoleOutputCP()) {
    if (_before != 0) ::SetConsoleOutputCP(CP_UTF8);
  }
  ~Utf8Console() {
    if (_before != 0) ::SetConsoleOutputCP(_before);
  }
  Utf8Console(const Utf8Console&) = delete;
  Utf8Console& operator=(const Utf8Console&) = delete;

 private:
  const UINT _before;
};

// From the process and from the C library's copy of its environment.
void dropVariable(const std::string& name) {
  ::SetEnvironmentVariableA(name.c_str(), nullptr);
  _putenv((name + "=").c_str());
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  const Utf8Console console;
  for (const char* name : korvane::platform::kLibraryVariables) dropVariable(name);
  std::vector<std::string> arguments;
  for (int i = 1; i < argc; ++i) arguments.push_back(korvane::platform::narrow(argv[i]));
  return korvane::programMain(arguments);
}
