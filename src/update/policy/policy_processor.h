// A policy from the server or the channel, or the one in force again, becomes what the driver
// enforces, or everything stays as it was.
//
// It is passed down once, through the files (policy_housekeeping.h) and the pipeline
// (policy_pipeline.h), and its outcome comes back as a value, which the reports
// (policy_reports.h) tell. At the start of the agent reconcile() undoes what a change has left.
//
// Lifetime: each thread that works on policies owns one: the update thread of a standard agent; on
// other agents the utility thread and the cloud command channel, which take turns (policy_turn.h).
// Nothing else changes policies: whoever wants the policy retranslated sets
// PolicySettings::setRetranslateNow.
// Threads: all operations belong to the owner's thread; reconcile() is called before there is one.
// They block while the translator runs, without limit, and for the driver's time-outs. A stop
// ends both at once; nothing is reported then.
// Errors: the outcome, a trace line, a record in the history and, for a received policy, the policy
// error of the settings. Events 10592 to 10596. Nothing throws but std::bad_alloc.
//
//   PolicyProcessor policy(policyPartsOfRun());
//   if (policy.receivePolicy(handler)) restartTheCountdown();
#pragma once

#include <cstddef>
#include <string_view>

#include "update/policy/policy_housekeeping.h"
#include "update/policy/policy_outcome.h"
#include "update/policy/policy_parts.h"
#include "update/policy/retrans_check.h"
#include "util/property_list.h"

namespace korvane {

class HttpsHandler;

class PolicyProcessor {
 public:
  explicit PolicyProcessor(const PolicyParts& parts);
  PolicyProcessor(const PolicyProcessor&) = delete;
  PolicyProcessor& operator=(const PolicyProcessor&) = delete;

  // At the start of the agent, once, before anything asks the driver: undoes a policy change that
  // the last run did not finish and removes what is left over in the folder "driver". The outcome
  // is the policy error, told to the server by reportOutstanding(). False when the driver could not
  // be put back; the next start, or the next change, retries.
  [[nodiscard]] bool reconcile();
  // PolicyReports::reportOutstanding()
  void reportOutstanding() { _reports.reportOutstanding(); }
  // PolicyPipeline::InitializePloicyHistory()
  [[nodiscard]] bool InitializePloicyHistory() { return _pipeline.InitializePloicyHistory(); }

  // Takes the policy of the handler's last answer: has it proven (proof.h), saves, translates and
  // loads it, records it
  // in agent.ini, removes the former one's files, reads its items and tells the server how
  // that went. Done when it is in force. An answer that says that there is no policy is
  // reported as kNothingNew.
  PolicyOutcome receivePolicy(HttpsHandler& handler);
  // The same for these bytes, which the caller has had proven or made of what was; properties:
  // "policy.name" and "policy.path".
  PolicyOutcome installPolicy(std::string_view bytes, const PropertyList& properties);
  // PolicyPipeline::retranslatePolicy(); the items have been read then. Whether prevention is on is
  // the caller's to ask.
  PolicyOutcome retranslatePolicy();
  // PolicyPipeline::translateHIDSPolicy(). What came of it stays until the same plus file is
  // translated again or RemovePrevHIDSPolicies() finds agent.ini ("ids.plus.policy.file") naming
  // another.
  PolicyOutcome translateHIDSPolicy(const STRING& plusFile, STRING& resultFile) {
    return _pipeline.translateHIDSPolicy(plusFile, resultFile);
  }

  // The items of the policy that agent.ini names.
  [[nodiscard]] bool loadRetransItems();
  // Sets the request for a retranslation when this machine has changed; true then.
  bool checkRetrans() { return _retrans.checkRetrans(); }

  // PolicyHousekeeping's.
  STRING savePolicyToFile(const char* data, size_t size) {
    return _housekeeping.savePolicyToFile(data, size);
  }
  void RemovePrevHIDSPolicies() { _housekeeping.RemovePrevHIDSPolicies(); }

  // A plus file's path less its last seven characters, and its name behind the last separator.
  static STRING getPolicyBase(const STRING& path);
  static STRING getPolicyFileName(const STRING& path);

 private:
  PolicyOutcome install(std::string_view bytes, const PropertyList& properties);
  PolicyOutcome told(const PolicyOutcome& outcome);

  PolicyPipeline _pipeline;
  PolicyReports _reports;
  PolicyHousekeeping _housekeeping;
  RetransCheck _retrans;
  const PolicyChange::Parts _parts;
  platform::Clock& _clock;
};

}  // namespace korvane
