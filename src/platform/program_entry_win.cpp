#include "platform/program_entry.h"
#include "platform/wide_win.h"

int wmain(int argc, wchar_t** argv) {
  std::vector<std::string> arguments;
  for (int i = 1; i < argc; ++i) arguments.push_back(korvane::platform::narrow(argv[i]));
  return korvane::programMain(arguments);
}
