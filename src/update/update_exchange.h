// The one shape that every update has: what is flagged or was put off is asked for, the server's
// answer is judged, and each kind that was asked for is processed, which ends with a report of its
// own (update_result.h).
//
// An UpdateGroup, constant data, says how a group of kinds differs from the others. What is done
// with the bytes of a kind is up to the caller.
//
// Lifetime: refers to the caller's flags and retry group, to the settings and to the connection.
// Threads: the update thread alone.
// Errors: a failed exchange clears the retry group, and what was to be fetched is dropped
// until the server announces it again; server_answer.h has the refusals. What `process`
// throws passes through.
//
//   UpdateExchange software(softwareUpdates(), _pending, _retry, settings.server, connection);
//   software.run([](HttpsHandler& handler, int kind) { ... });   // once a cycle
#pragma once

#include <functional>

#include "eventlog/event_id.h"
#include "update/pending_updates.h"
#include "update/retry_group.h"

namespace korvane {

class HttpsHandler;
class ServerConnection;
class ServerSettings;

struct UpdateGroup {
  enum class Of {
    // What was put off is asked for by itself when it is due, for as long as the server puts it off
    // (RetryGroup::refuse); another refusal does not end that.
    settings,
    // What was put off is asked for together with what is flagged, ten times at most
    // (RetryGroup::refuseWithinLimit); another refusal ends it.
    packages,
  };
  // Trace lines; none where null.
  struct Traces {
    const char* source;
    const char* putOff;           // with the number of times before
    const char* asked = nullptr;  // with the kinds and whether it is the first poll
    const char* failed = nullptr;
    const char* accepted = nullptr;
    const char* refused = nullptr;  // with the server's text and code
  };

  Of of;
  int kinds;
  int alsoRepeated;  // kinds that are repeated whichever of the group was put off
  EventId refusalEvent;
  int (*ask)(HttpsHandler& handler, int kinds, bool firstPoll);
  Traces traces;
};

const UpdateGroup& configPolicyUpdates();
const UpdateGroup& idsUpdates();
const UpdateGroup& softwareUpdates();
const UpdateGroup& contentUpdates();

class UpdateExchange {
 public:
  using Process = std::function<void(HttpsHandler& handler, int kind)>;
  static constexpr int kAllKinds = -1;

  UpdateExchange(const UpdateGroup& group, PendingUpdates& pending, RetryGroup& retry,
                 ServerSettings& server, ServerConnection& connection)
      : _group(group), _pending(pending), _retry(retry), _server(server), _connection(connection) {}

  // Whether there is something to ask for.
  bool due() const { return _retry.due() || _pending.any(_group.kinds); }

  // Asks for what is due but for the kinds that are not `allowed`, whose flags are cleared all the
  // same. If the answer may be used, has every kind that was asked for processed, in the order of
  // the bits. True when the server answered with anything but a refusal.
  bool run(const Process& process, int allowed = kAllKinds, bool firstPoll = false);

 private:
  [[nodiscard]] int collectDueKinds();
  [[nodiscard]] bool exchange(HttpsHandler& handler, int kinds, const Process& process);
  void putOff(int kinds);

  const UpdateGroup& _group;
  PendingUpdates& _pending;
  RetryGroup& _retry;
  ServerSettings& _server;
  ServerConnection& _connection;
};

}  // namespace korvane
