// The update thread's software step: fetches a software package, unpacks it into
// InstallRoot/IPS/update/software for the installer, and reports the outcome.
//
// The agent installs nothing itself. Beside the unpacked package lies "swupdate.results"; the
// installer adds its "result.*" lines there, and the agent's next start reports them
// (sendUpdateResults).
//
// Lifetime: refers to the update thread's flags and retry group. Threads: the update thread alone.
// Errors reported to the server: 10 for a package that cannot be unpacked, 35 when the server
// announced a package and gave none or none that is named, 19 when it says that it has none, and
// those of a package that does not prove itself (update/policy/proof.h).
// Crash rule: the directory is recorded in the settings last; until then the next start
// knows of no update.
//
//   SoftwareUpdate software(parts, _pending, _softwareRetry);
//   software.processSoftwareUpdate();   // once a cycle
#pragma once

#include <string>
#include <string_view>

#include "archive/refusal.h"
#include "platform/fwd.h"
#include "update/update_exchange.h"
#include "util/property_list.h"

namespace korvane {

class HttpsHandler;
class PolicySettings;
class ServerSettings;
class SettingsFile;
class StopToken;
class UpdateSettings;

class SoftwareUpdate {
 public:
  static constexpr int kFailed = 10;

  // All of it outlives the object.
  struct Parts {
    platform::Files& files;
    platform::Clock& clock;
    ServerSettings& server;
    ServerConnection& connection;
    UpdateSettings& settings;
    const PolicySettings& policy;
    SettingsFile& settingsFile;
    StopToken& stop;
  };

  SoftwareUpdate(const Parts& parts, PendingUpdates& pending, RetryGroup& retry)
      : _parts(parts),
        _exchange(softwareUpdates(), pending, retry, parts.server, parts.connection) {}

  void processSoftwareUpdate();

  // Reports the outcome that "swupdate.results" in `directory` states, and forgets the directory
  // once the server has it. A file that is missing or states no result is reported as failed.
  void sendUpdateResults(const STRING& directory);

 private:
  void downloadPackage(HttpsHandler& handler);
  void installPackage(std::string_view bytes, const PropertyList& results);
  // An earlier package goes before this one comes, but not before this one has been checked.
  [[nodiscard]] bool unpackPackage(const std::string& directory, std::string_view bytes,
                                   archive::Refusal& refusal);
  void report(int code, const STRING& text, const PropertyList& pairs = {});
  void recordDirectory(const STRING& directory);

  const Parts _parts;
  UpdateExchange _exchange;
};

}  // namespace korvane
