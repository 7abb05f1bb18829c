// The polling engine of an agent that a management server drives: once a second it decides which
// exchanges are due and makes them, each on a handler of its own.
//
// In a cycle, in this order: a check of the notification port; whether this machine changed since
// the policy was translated; with the countdown at 0 the prevention test and a status;
// configuration and policy; unless the last exchange failed, detection policy, detection
// configuration and software; content packages; a request for application data; a changed policy
// state; policies to be retranslated.
//
// All updates are fetched in one way (update_exchange.h), and deferred requests wait in a
// RetryGroup. A failed exchange drops what was to be fetched; the next status or
// notification brings it back.
//
// The first status decides whether event forwarding begins. With polling disabled nothing would
// send it again after a failure, so it is then repeated with a growing pause until the server has
// answered it, whatever it answered. One that a server answers with "unknown agent" is sent again,
// after such a pause, under the identity of the registration that follows.
//
// Start: as every Thread. Stop: stop() clears the running flag and ends the pause; an exchange in
//   progress is ended by the shutdown token. Nothing is drained: the next start polls at once.
// Parts: those of the run that the thread is made in, taken once, in the constructor.
// Threads: all state belongs to this thread but the running flag. cycle() is for tests,
// instead of start().
// Errors: a result of the IDS component without code or message is reported to the server and leaves
//   run as AgentError 51, after event 10580. run may be entered again (supervised_update_thread.h).
// Units: all countdowns count cycles, of about a second each.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string_view>

#include "agent/thread/thread.h"
#include "update/content_update.h"
#include "update/notification_listener.h"
#include "update/pending_updates.h"
#include "update/policy/builtin_policy_switch.h"
#include "update/policy/policy_processor.h"
#include "update/retry_group.h"
#include "update/software_update.h"
#include "update/update_exchange.h"
#include "update/update_parts.h"
#include "util/export.h"

namespace korvane {

struct UpdateResult;
class AgentInfo;
class HttpsHandler;

class KORVANE_EXPORT UpdateThread : public Thread {
 public:
  static const int MAX_RETRY = RetryGroup::kMaxRetry;
  static const int RETRY_INTERVAL = RetryGroup::kInterval;

  explicit UpdateThread(AgentInfo* info);
  ~UpdateThread() override;

  void run() override;
  void stop() override;

  // One turn of the loop without its pause.
  void cycle();

 private:
  explicit UpdateThread(const UpdateParts& parts);

  void loop();
  void prepare();
  // True when the cycle still needs its pause.
  bool work();
  void stepCountdowns();

  [[nodiscard]] bool tcpNotification();

  // Status and state
  bool statusDue();
  void sendAgentStatus();
  void monitorPrevention();
  void monitorPolicyState();
  void updatePollingInterval();
  void updateAutoRetransInterval();

  // Configuration and policy
  void processConfigPolicyUpdates();
  void applyPolicy(HttpsHandler& handler);
  void applyConfiguration(HttpsHandler& handler, int kind);
  void reloadAutoRetransInterval();
  void retranslateOnRequest();

  // The IDS component
  void processHIDSPolicyUpdate();
  void applyIdsPolicy(HttpsHandler& handler);
  std::optional<UpdateResult> installIdsPolicy(std::string_view bytes,
                                               const PropertyList& properties);
  UpdateResult configureIds(const PropertyList& settings, const PropertyList& rules, int kind);
  // Puts log rules into force; a problem leaves those that are.
  UpdateResult takeLogRules(const PropertyList& rules);
  // Hands a translated policy over and gives what the component made of it.
  UpdateResult handOver(const STRING& resultFile, const char* context);
  void retranslateIdsOnRequest();

  void notifyAppDataCollection();

  const UpdateParts _parts;
  std::atomic<bool> _running{true};
  bool _initialised = false;
  bool _bFirstPollRequired = true;
  int32_t _pollingInterval = -1;
  StatusRepeat _statusRepeat;
  int32_t _autoRetransCountdown = -1;
  RetryGroup _configRetry;
  RetryGroup _idsRetry;
  RetryGroup _softwareRetry;
  RetryGroup _componentRetry;
  PendingUpdates _pending;
  PolicyProcessor _policy;
  BuiltInPolicySwitch _builtInSwitch;
  UpdateExchange _configExchange;
  UpdateExchange _idsExchange;
  SoftwareUpdate _software;
  ContentUpdate _content;
  NotificationListener _listener;
};

}  // namespace korvane
