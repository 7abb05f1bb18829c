// The update thread's content step: fetches the content packages that the server has for the agent,
// unpacks each into its kind's directory and marks it for the component update thread.
//
// Lifetime: refers to the update thread's flags and retry group. Threads: the update thread alone;
// it takes the content's lock while it changes a directory.
// Errors: everything that goes wrong ends in a result for the server (36 for a package that
// cannot be unpacked, for whatever reason; the agent's own log says which) or, for an
// exchange, in the retry group.
// Crash rule: a directory is changed only after the archive was checked as a whole and while the
// kind's update-now flag is off on disk; the flag is switched on when every file is in place.
//
//   ContentUpdate content(parts, _pending, _componentRetry);
//   content.processComponentUpdates();   // once a cycle
#pragma once

#include <string>
#include <string_view>

#include "archive/refusal.h"
#include "update/content_kinds.h"
#include "update/update_exchange.h"

namespace korvane {

class PolicySettings;
class ServerConnection;
class ServerSettings;
class StopToken;

class ContentUpdate {
 public:
  // All of it outlives the object.
  struct Parts {
    ContentParts content;
    platform::Clock& clock;
    const PolicySettings& policy;
    ServerSettings& server;
    ServerConnection& connection;
    StopToken& stop;
  };

  ContentUpdate(const Parts& parts, PendingUpdates& pending, RetryGroup& retry)
      : _parts(parts),
        _exchange(contentUpdates(), pending, retry, parts.server, parts.connection) {}

  void processComponentUpdates();

  // Stores and unpacks one package and reports the result, which is returned too: 0, 36, or the
  // code of a package that does not prove itself (update/policy/proof.h). A stop
  // that ends the unpacking is not reported.
  [[nodiscard]] int processComponentData(int kind, const std::string* bytes,
                                         const STRING& directory);

 private:
  [[nodiscard]] bool unpackPackage(const ContentKind& kind, std::string_view bytes,
                                   const std::string& directory, archive::Refusal& refusal);

  const Parts _parts;
  UpdateExchange _exchange;
};

}  // namespace korvane
