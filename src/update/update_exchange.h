// The one shape that every update has: what is flagged or was put off is asked for, the server's answer is judged, and
// each kind that it covers is processed, which ends with a report of its own (update_result.h).
//
// Where the groups of kinds differ stands in an UpdateGroup each, constant data; what a kind's bytes are good for is
// the caller's to know.
//
// Lifetime: refers to the caller's flags and retry group. Threads: the update thread alone.
// Errors: a failed exchange clears the retry group, and what was to be fetched is dropped until the server announces it
// again; server_answer.h has the refusals. What `process` throws passes through.
//
//   UpdateExchange software(softwareUpdates(), _pending, _retry);
//   software.run([](HttpsHandler& handler, int kind) { ... });   // once a cycle
#pragma once

#include <functional>

#include "update/pending_updates.h"
#include "update/retry_group.h"

namespace korvane {

class HttpsHandler;

struct UpdateGroup {
  enum class Of {
    // What was put off is asked for by itself while it is due, for as long as the server puts it off; a refusal changes
    // nothing about it.
    settings,
    // What was put off is asked for together with what is flagged, ten times at most; a refusal ends it.
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
  int refusalEvent;
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

  UpdateExchange(const UpdateGroup& group, PendingUpdates& pending, RetryGroup& retry)
      : _group(group), _pending(pending), _retry(retry) {}

  // Whether there is something to ask for.
  bool due() const { return _retry.due() || _pending.any(_group.kinds); }

  // Asks for what is due, without the kinds that are not `allowed`, whose flags go all the same, and has every kind
  // that was asked for processed if the answer may be used, in the order of their bits. True when the server answered
  // with anything but a refusal.
  bool run(const Process& process, int allowed = kAllKinds, bool firstPoll = false);

 private:
  [[nodiscard]] int takeKinds();
  [[nodiscard]] bool exchange(HttpsHandler& handler, int kinds, const Process& process);
  void putOff(int kinds);

  const UpdateGroup& _group;
  PendingUpdates& _pending;
  RetryGroup& _retry;
};

}  // namespace korvane
