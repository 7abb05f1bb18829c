// What the server, or a manager on the channel, is told about the policy, and what it is still
// owed.
//
// The outcome of every received policy is the settings' policy error and is sent as a status. What
// did not get through, or could not come about before the last stop, stays owed until the next
// moment at which a status is due. Only a standard agent has a server to tell; on others the
// outcome is noted for the channel (policy_news.h).
//
// Lifetime: its parts outlive it; what is owed lies in the run, since the thread that finds it at
// the start is another than the one that sends it. Threads: each object belongs to one, several may
// share what is owed.
// Errors: a report that fails is traced and stays owed.
//
//   PolicyReports reports({shared.owed, shared.news, settings, connection});
//   reports.tell(outcome);
#pragma once

#include "agent/thread/locks.h"
#include "update/policy/policy_change.h"
#include "update/policy/policy_news.h"
#include "update/policy/policy_outcome.h"

namespace korvane {

class PolicySettings;
class ServerConnection;

// The outcome that has not been told yet; one for each run of an agent. Threads: any.
class OwedPolicyReport {
 public:
  void owe(int code, const STRING& text);
  void settle();
  // False when nothing is owed.
  [[nodiscard]] bool read(int& code, STRING& text);

 private:
  Win32Mutex _lock;
  bool _due GUARDED_BY(_lock) = false;
  int _code GUARDED_BY(_lock) = 0;
  STRING _text GUARDED_BY(_lock);
};

class PolicyReports {
 public:
  struct Parts {
    OwedPolicyReport& owed;
    PolicyNews& news;
    PolicySettings& settings;
    ServerConnection& connection;
  };

  explicit PolicyReports(const Parts& parts) : _parts(parts) {}

  // At the start: what became of a change that the last run did not finish. Without one, the policy
  // error that stands may not have been told.
  void begin(Reconciled found);
  // Makes the outcome the policy error and sends it.
  void tell(const PolicyOutcome& outcome);
  // Sends what is owed; without anything it does nothing. For the moments at which a status is due,
  // before the prevention test.
  void reportOutstanding();

 private:
  void report(int code, const STRING& text);
  void sendPolicyReturnStatus();
  [[nodiscard]] bool sendOutcome();

  const Parts _parts;
};

}  // namespace korvane
