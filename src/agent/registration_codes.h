// What a return code of the registration exchange means. Codes 5 to 60 are libcurl's result codes,
// 300, 301 and 600 the server's application errors, 400 the HTTP status.
#pragma once

#include "util/string.h"

namespace korvane {

enum class RegistrationVerdict {
  done,        // the exchange took place
  retry,       // try again after the pause
  notRetried,  // reported as event 10100, then treated like done
};

// Traces the code with its text and meaning, writes event 10100 for a code outside the
// table, and says what to do. Thread-safe.
[[nodiscard]] RegistrationVerdict classifyRegistration(int code, const STRING& text);

}  // namespace korvane
