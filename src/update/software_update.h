// The update thread's software step: fetches a software package, unpacks it into
// InstallRoot/IPS/update/software for the installer, and reports the outcome.
//
// The agent installs nothing itself. Beside the unpacked package lies "swupdate.results"; the
// installer adds its "result.*" lines there, and the agent's next start reports them
// (sendUpdateResults).
//
// Lifetime: refers to the update thread's flags and retry group. Threads: the update thread alone.
// Errors reported to the server: 10 for a package that cannot be unpacked, 35 when the server
// announced a package and gave none or none that is named, 19 when it says that it has none.
// Crash rule: the directory is recorded in the settings last; until then the next start
// knows of no update.
//
//   SoftwareUpdate software(_pending, _softwareRetry);
//   software.processSoftwareUpdate();   // once a cycle
#pragma once

#include <string>

#include "update/update_exchange.h"
#include "util/property_list.h"

namespace korvane {

class HttpsHandler;

class SoftwareUpdate {
 public:
  static constexpr int kFailed = 10;

  SoftwareUpdate(PendingUpdates& pending, RetryGroup& retry)
      : _exchange(softwareUpdates(), pending, retry) {}

  void processSoftwareUpdate();

  // Reports the outcome that "swupdate.results" in `directory` states, and forgets the directory
  // once the server has it. A file that is missing or states no result is reported as failed.
  static void sendUpdateResults(const STRING& directory);

 private:
  static void takePackage(HttpsHandler& handler);
  static void installPackage(std::string_view bytes, const PropertyList& results);

  UpdateExchange _exchange;
};

}  // namespace korvane
