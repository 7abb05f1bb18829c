// The update thread's content step: fetches the content packages that the server has for the agent,
// unpacks each into its kind's directory and marks it for the component update thread.
//
// Lifetime: refers to the update thread's flags and retry group. Threads: the update thread alone;
// it takes contentLock() while it changes a directory.
// Errors: everything that goes wrong ends in a result for the server (36 for a package that
// cannot be unpacked, for whatever reason; the agent's own log says which) or, for an
// exchange, in the retry group.
// Crash rule: a directory is changed only after the archive was checked as a whole and while the
// kind's update-now flag is off on disk; the flag is switched on when every file is in place.
//
//   ContentUpdate content(_pending, _componentRetry);
//   content.processComponentUpdates();   // once a cycle
#pragma once

#include <string>

#include "update/content_kinds.h"
#include "update/update_exchange.h"

namespace korvane {

class ContentUpdate {
 public:
  ContentUpdate(PendingUpdates& pending, RetryGroup& retry)
      : _exchange(contentUpdates(), pending, retry) {}

  void processComponentUpdates();

  // Stores and unpacks one package and reports the result, which is returned too: 0 or 36. A stop
  // that ends the unpacking is not reported.
  [[nodiscard]] static int processComponentData(int kind, const std::string* bytes,
                                                const STRING& directory);

 private:
  UpdateExchange _exchange;
};

}  // namespace korvane
