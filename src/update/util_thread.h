// The thread that maintains enforcement on agents without a management server: once a second it
// has the policy retranslated when its timer has run out or somebody asked for it, and repeats the
// prevention self-test. It reports nothing.
//
// Unlike the update thread it does not ask whether this machine has changed, nor whether prevention
// is on: timer and request alone decide.
//
// The policy's work is done in turns with the cloud command channel (policy_turn.h); the items of a
// policy that came over the channel are read in the second after.
//
// Start: as every Thread; the policy's history, its items and the timer are made ready
//   then. Stop: stop() clears the running flag and ends the pause; a translation in
//   progress is ended by the shutdown token.
// Threads: all state belongs to this thread but the running flag and the timer. cycle() is
//   for tests, instead of start().
#pragma once

#include <atomic>
#include <memory>

#include "agent/thread/thread.h"
#include "update/policy/policy_processor.h"
#include "update/retranslation_timer.h"
#include "update/retry_group.h"
#include "util/export.h"

namespace korvane {

class AgentInfo;

class KORVANE_EXPORT UtilThread : public Thread {
 public:
  static const int MAX_RETRY = RetryGroup::kMaxRetry;
  static const int RETRY_INTERVAL = RetryGroup::kInterval;

  explicit UtilThread(AgentInfo* info);
  ~UtilThread() override;

  void run() override;
  void stop() override;

  // One turn of the loop without its pause.
  void cycle();

 private:
  explicit UtilThread(const PolicyParts& parts);

  void initialize();
  void work();
  void workOnPolicy(bool retranslate);
  void monitorPrevention();
  void updateTimers();

  std::atomic<bool> _running{true};
  const PolicyParts _parts;
  bool _initialised = false;
  PolicyProcessor _policy;
  uint64_t _policyNews = 0;  // the number up to which they are known here
  std::unique_ptr<RetranslationTimer> _timer;
};

}  // namespace korvane
