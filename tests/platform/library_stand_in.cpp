#include "util/export.h"

extern "C" KORVANE_EXPORT int korvaneTestAnswer() {
  return 42;
}
