#include <windows.h>

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

}  // namespace

int wmain(int argc, wchar_t** argv) {
  const Utf8Console console;
  std::vector<std::string> arguments;
  for (int i = 1; i < argc; ++i) arguments.push_back(korvane::platform::narrow(argv[i]));
  return korvane::programMain(arguments);
}
