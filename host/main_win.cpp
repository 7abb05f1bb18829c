#include <cstdlib>
#include <string>
#include <vector>

#include "host/host_program.h"
#include "host/text_win.h"
#include "platform/library_variables.h"

namespace {

// From the process and from the C library's copy of its environment.
void dropVariable(const std::string& name) {
  ::SetEnvironmentVariableA(name.c_str(), nullptr);
  _putenv((name + "=").c_str());
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  // Nothing is ever loaded from the program's folder, the current one or the path.
  ::SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
  for (const char* name : korvane::platform::kLibraryVariables) dropVariable(name);
  std::vector<std::string> arguments;
  for (int i = 1; i < argc; ++i) arguments.push_back(korvane::host::narrow(argv[i]));
  return korvane::host::runProgram(arguments);
}
