#include <cstdlib>

#include "host/host_program.h"
#include "platform/library_variables.h"

int main(int argc, char** argv) {
  for (const char* name : korvane::platform::kLibraryVariables) unsetenv(name);
  return korvane::host::runProgram({argv + 1, argv + argc});
}
