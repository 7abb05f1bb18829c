#include "platform/program_entry.h"

int main(int argc, char** argv) {
  return korvane::programMain({argv + 1, argv + argc});
}
