// From a source policy to the policy in force: translated, loaded into the driver, recorded.
//
// A source policy (the "plus" file, "driver/policy....sbp.zip") is translated by the program
// bin/translate into the driver's policy (the "minus" file, "....conf") and the translation items
// ("....trans"); their names and docs/file-formats.md tell the rest. Every change of what is in
// force is one step to whoever looks later: a journal (policy_journal.h) holds how things were
// before the first change, and goes when the new policy stands in the driver, its registry values,
// agent.ini and the files alike (policy_change.h).
//
// Lifetime: part of a PolicyProcessor; its parts outlive it. Threads: its owner's alone. Every
// operation blocks while the translator runs, without limit, and for the driver's time-outs. A stop
// ends both at once; the translator is ended then, and nothing has changed or the next start puts
// it back.
// Errors: the outcome, a trace line and a record in the history. Nothing throws but std::bad_alloc.
//
//   PolicyPipeline pipeline(parts);
//   const PolicyOutcome outcome = pipeline.install(plusFile, {"Base 4", "/policies/base"});
#pragma once

#include "update/policy/policy_change.h"
#include "update/policy/policy_history.h"
#include "update/policy/policy_outcome.h"
#include "update/policy/translator_program.h"

namespace korvane {

// How the server, or the channel, describes a policy.
struct ReceivedPolicy {
  STRING name;  // the version included
  STRING path;  // in the server's database
};

class PolicyPipeline {
 public:
  struct Parts : PolicyChange::Parts {
    platform::Clock& clock;
    platform::Processes& processes;
    platform::Rights& rights;
    StopToken& stop;
  };

  explicit PolicyPipeline(const Parts& parts);

  // Makes the folder "history" and its files; false, and no history from then on, when that fails.
  [[nodiscard]] bool InitializePloicyHistory() { return _history.initialize(); }

  // Translates and loads a new policy, and records it in agent.ini as the one in force.
  PolicyOutcome install(const STRING& plusFile, const ReceivedPolicy& received) {
    return translatePolicy(plusFile, &received);
  }
  // The same for the policy that agent.ini names, unless the built-in one is in force; then takes
  // the request for it (PolicySettings::getRetranslateNow) back, unless the agent stops.
  PolicyOutcome retranslatePolicy();
  // Translates an IDS policy; resultFile is the file for the IDS component, beside the plus file,
  // and empty when there is none.
  PolicyOutcome translateHIDSPolicy(const STRING& plusFile, STRING& resultFile);

 private:
  // In the history: the translated policy could not be put in force.
  static constexpr int kNotRecorded = 2000;

  // One translation while it runs.
  struct Attempt {
    Attempt(const STRING& plusFile, const STRING& name, platform::Clock& clock);
    // The record as it stands now, its duration included.
    HistoryRecord finished() const;

    platform::Clock& clock;
    PolicyFiles files;
    HistoryRecord record;
    int64_t startedMs;  // monotonic
    bool hadMinus = false;
  };

  bool canRead(const STRING& plusFile, const char* context);
  // received: null in a retranslation.
  PolicyOutcome translatePolicy(const STRING& plusFile, const ReceivedPolicy* received);
  PolicyOutcome runTranslatorFor(Attempt& attempt);
  bool isUnchanged(const Attempt& attempt);
  void installItemsAlone(const PolicyFiles& names);
  void discard(const PolicyFiles& names);
  PolicyOutcome load(Attempt& attempt, const ReceivedPolicy* received);
  PolicyOutcome loadIntoDriver(PolicyChange& change, Attempt& attempt);
  PolicyOutcome recordLoaded(PolicyChange& change, Attempt& attempt,
                             const ReceivedPolicy* received);
  PolicyOutcome giveUp(Attempt& attempt, int code, const STRING& text);
  PolicyOutcome runTranslatorForIds(const Attempt& attempt, int& exitCode);
  PolicyOutcome handleHIDSResult(const PolicyFiles& names);
  void UpdateHistoryIPS(const Attempt& attempt);
  void UpdateHistoryIDS(const Attempt& attempt);

  const Parts _parts;
  TranslatorProgram _translator;
  PolicyHistory _history;
};

}  // namespace korvane
