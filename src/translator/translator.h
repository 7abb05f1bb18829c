// The translator library's door: facts about this machine that a policy's translation depended on,
// such as its addresses. The library is a component of its own ("kavipstranslator" in the agent's
// folder "extensions", interface in translator_abi.h) and may be missing; the agent then goes on
// without it.
//
// Lifetime: initialize() loads the library, shutdown() lets it go; a call that is under way on
// another thread keeps it until that call has returned. initialize() again after shutdown() is
// fine; while a library is loaded it does nothing and succeeds.
// Threads: any thread may call anything; calls into the library run side by side and hold no lock.
// Errors: false. Events 10530 to 10533 of the agent's log name the library's path and the reason.
//
//   Translator::initialize("/opt/korvane/IPS/extensions");
//   std::vector<STRING> addresses;
//   if (Translator::getFunctionValues("LocalIPs", addresses)) ...
#pragma once

#include <cstddef>
#include <vector>

#include "util/string.h"

namespace korvane {

class Translator {
 public:
  // No more values than this are taken from a function, and no longer ones (in UTF-16 units).
  static constexpr size_t kMaxValues = 4096;
  static constexpr size_t kMaxValueLength = 32767;

  // path: the folder that holds the library, a full path.
  [[nodiscard]] static bool initialize(const STRING& path);
  // Replaces `list` by the function's values; empty and false when there is no library or no such
  // function.
  [[nodiscard]] static bool getFunctionValues(const STRING& name, std::vector<STRING>& list);
  // False also without a library: ask available() where the difference matters.
  static bool fileExists(const STRING& path);
  static bool available();
  static void shutdown();
};

}  // namespace korvane
