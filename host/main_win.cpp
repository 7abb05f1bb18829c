#include <vector>

#include "host/host_program.h"
#include "host/text_win.h"

int wmain(int argc, wchar_t** argv) {
  // Nothing is ever loaded from the program's folder, the current one or the path.
  ::SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
  std::vector<std::string> arguments;
  for (int i = 1; i < argc; ++i) arguments.push_back(korvane::host::narrow(argv[i]));
  return korvane::host::runProgram(arguments);
}
