// The policy pipeline: a policy from the server or the channel, or the one in force again, becomes
// what the driver enforces, or everything stays as it was.
//
// A source policy (the "plus" file, "driver/policy....sbp.zip") is translated by the program
// bin/translate into the driver's policy (the "minus" file, "....conf") and the translation items
// ("....trans"); their names and docs/file-formats.md tell the rest. Every change of what is in
// force is one step to whoever looks later: a journal (policy_journal.h) holds how things were
// before the first change, and goes when the new policy stands in the driver, its registry values,
// agent.ini and the files alike. reconcile() undoes what a journal is left of.
//
// Lifetime: each thread that works on policies owns one: the update thread of a standard agent; on
// other agents the utility thread and the cloud command channel, which take turns (policy_turn.h).
// Nothing else changes policies: whoever wants the policy retranslated sets
// AgentConfig::setRetranslateNow.
// Threads: all operations belong to the owner's thread; reconcile() is called before there is one.
// They block while the translator runs, without limit, and for the driver's time-outs. A stop
// (shutdownToken) ends both at once; the translator is ended, nothing is reported, nothing has
// changed or reconcile() puts it back.
// Errors: false, with errorText(), a trace line, a record in the history and, for a
// received policy, the policy error of AgentConfig. Events 10592 to 10596. Nothing throws
// but std::bad_alloc.
//
//   PolicyProcessor policy;
//   policy.InitializePloicyHistory();
//   if (policy.receivePolicy(handler)) restartTheCountdown();
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "update/policy/policy_history.h"
#include "update/policy/retrans_check.h"
#include "util/property_list.h"

namespace korvane {

class Driver;
class HttpsHandler;
class PolicyChange;
struct PolicyFiles;

class PolicyProcessor {
 public:
  // Policy error codes, as the server gets them.
  static constexpr int kNoNewPolicy = 19;
  static constexpr int kNoPolicyPath = 35;
  static constexpr int kPolicyNotSaved = 36;
  static constexpr int kPolicyFailed = 66;

  // With the current run's driver, or with this one, which outlives the object.
  PolicyProcessor();
  explicit PolicyProcessor(Driver& driver);
  ~PolicyProcessor();
  PolicyProcessor(const PolicyProcessor&) = delete;
  PolicyProcessor& operator=(const PolicyProcessor&) = delete;

  // At the start of the agent, once, before anything asks the driver: undoes a policy change that
  // the last run did not finish and removes what is left over in the folder "driver". The outcome
  // is the policy error, told to the server by reportOutstanding(). False when the driver could not
  // be put back; the next start, or the next change, retries.
  [[nodiscard]] static bool reconcile();
  // Tells the server what it has not been told yet: the outcome of reconcile(), and of a policy
  // whose report failed or did not come about before the last stop. For the moments at which a
  // status is due, before the prevention test; without anything outstanding it does nothing.
  static void reportOutstanding();
  // Sends the policy error, if it has changed, as a status. The mark of the change stays
  // when that fails. Only a standard agent has a server to tell; on others it is noted for
  // the channel (policy_news.h).
  static void sendPolicyReturnStatus();

  // Makes the folder "history" and its files; false, and no history from then on, when that fails.
  [[nodiscard]] bool InitializePloicyHistory();

  // Takes the policy of the handler's last answer: saves, translates and loads it, records it
  // in agent.ini, removes the former one's files, reads its items and tells the server how
  // that went. True when it is in force. An answer that says that there is no policy is
  // reported as kNoNewPolicy.
  [[nodiscard]] bool receivePolicy(HttpsHandler& handler);
  // The same for these bytes; properties: "policy.name" and "policy.path".
  [[nodiscard]] bool installPolicy(std::string_view bytes, const PropertyList& properties);

  // Translates and loads the policy that agent.ini names, unless the built-in one is in force, and
  // then takes the request (AgentConfig::getRetranslateNow) back. True when the driver took a new
  // policy; its items have been read then. Whether prevention is on is the caller's to ask.
  [[nodiscard]] bool retranslatePolicy();
  // Translates and loads the policy of this plus file. True only when the driver took a new
  // one: not when the result is what it has already. Recording another plus file in
  // agent.ini is installPolicy()'s.
  [[nodiscard]] bool translatePolicy(const STRING& plusFile);
  // Translates an IDS policy; resultFile is the file for the IDS component, beside the plus file.
  // What came of it stays until the same plus file is translated again or RemovePrevHIDSPolicies()
  // finds agent.ini ("ids.plus.policy.file") naming another.
  [[nodiscard]] bool translateHIDSPolicy(const STRING& plusFile, STRING& resultFile);
  // Why the last operation answered false; empty when the policy had not changed, and after
  // a success.
  const STRING& errorText() const { return _errorText; }
  // The last operation answered false because the agent stops: there is nothing to report.
  bool stopped() const { return _stopped; }

  // The items of the policy that agent.ini names.
  [[nodiscard]] bool loadRetransItems();
  // Sets the request for a retranslation when this machine has changed; true then.
  bool checkRetrans();

  // Writes a policy (also one of the IDS) to a new file; its path, or an empty text with
  // errorText().
  STRING savePolicyToFile(const char* data, size_t size);
  // A plus file's path less its last seven characters, and its name behind the last separator.
  static STRING getPolicyBase(const STRING& path);
  static STRING getPolicyFileName(const STRING& path);
  // Runs the translator to its end; its exit code, 0 when that cannot be read, 100 when it
  // cannot be started.
  [[nodiscard]] int RunTranslator(const STRING& agentArg, const STRING& plusFile,
                                  const STRING& out1, const STRING& out2,
                                  const STRING& prevItemsFile);
  static STRING getTranslationError(int code, const STRING& out1);
  // Removes a plus file with its minus and items file and empties the name.
  static void removeOldPolicyFiles(STRING& oldPlusFile);
  // Removes the policies in the folders "driver" of this and of the former product ("TRLM") that
  // neither agent.ini nor the driver's settings name.
  static void RemovePrevHIDSPolicies();
  // Removes everything in a directory, the directory itself stays. False when something is left.
  [[nodiscard]] static bool cleanUpdateDirectory(const STRING& directory);

 private:
  struct Received;
  struct Attempt;

  // The steps of translatePolicy(); received: the policy is a new one of the server.
  [[nodiscard]] bool translate(const STRING& plusFile, const Received* received);
  [[nodiscard]] bool runTranslatorFor(Attempt& attempt);
  [[nodiscard]] bool takeUnchanged(const Attempt& attempt);
  [[nodiscard]] bool load(Attempt& attempt, const Received* received);
  [[nodiscard]] bool loadIntoDriver(PolicyChange& change, Attempt& attempt);
  [[nodiscard]] bool recordLoaded(PolicyChange& change, Attempt& attempt, const Received* received);
  [[nodiscard]] bool giveUp(Attempt& attempt, int code, const STRING& text);
  [[nodiscard]] bool takeHIDSResult(const PolicyFiles& files);

  [[nodiscard]] bool canTranslate(const STRING& plusFile, const char* context);
  [[nodiscard]] bool refuse(int code, const STRING& text);
  static void report(int code, const STRING& text);

  void UpdateHistoryIPS(const Attempt& attempt);
  void UpdateHistoryIDS(const Attempt& attempt);

  Driver& _driver;
  PolicyHistory _history;
  RetransCheck _retrans;
  STRING _errorText;
  bool _stopped = false;
  bool _retranslating = false;  // what is being translated was asked for by a retranslation request
};

}  // namespace korvane
