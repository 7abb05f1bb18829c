#include "host/host_program.h"

int main(int argc, char** argv) {
  return korvane::host::runProgram({argv + 1, argv + argc});
}
