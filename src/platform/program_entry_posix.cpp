#include "platform/program_entry.h"

#include <cstdlib>

#include "platform/library_variables.h"

int main(int argc, char** argv) {
  for (const char* name : korvane::platform::kLibraryVariables) unsetenv(name);
  return korvane::programMain({argv + 1, argv + argc});
}
