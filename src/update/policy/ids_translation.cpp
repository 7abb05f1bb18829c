// PolicyPipeline: a policy of the IDS component, which is translated only.
#include "eventlog/event_log.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "update/policy/policy_pipeline.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kHidsTag[] = "translateHIDSPolicy";

}  // namespace

PolicyOutcome PolicyPipeline::translateHIDSPolicy(const STRING& plusFile, STRING& resultFile) {
  resultFile.clear();
  if (!canRead(plusFile, kHidsTag))
    return {PolicyOutcome::Result::missing, kPolicyFailure, "Plus file missing " + plusFile};
  Attempt attempt(plusFile, {}, _parts.clock);
  int exitCode = 0;
  const PolicyOutcome outcome = runTranslatorForIds(attempt, exitCode);
  // What cannot be removed now is overwritten or swept later.
  if (!outcome) ignoreResult(removeIfThere(_parts.files, attempt.files.freshMinus));
  if (outcome.stopped()) return outcome;
  attempt.record.resultCode = exitCode;
  attempt.record.errorText = outcome.text;
  UpdateHistoryIDS(attempt);
  if (outcome) resultFile = attempt.files.minus;
  return outcome;
}

PolicyOutcome PolicyPipeline::runTranslatorForIds(const Attempt& attempt, int& exitCode) {
  const PolicyFiles& names = attempt.files;
  const std::string errorFile = policyBaseOf(attempt.record.plusFile).toUtf8() + ".err";
  // What cannot be removed now is overwritten or swept later.
  ignoreResult(removeIfThere(_parts.files, errorFile));
  ignoreResult(removeIfThere(_parts.files, names.freshMinus));
  const TranslatorResult run = _translator.run(
      {"-hidsagent", attempt.record.plusFile, errorFile, names.freshMinus, STRING()});
  exitCode = run.exitCode;
  PolicyOutcome outcome;
  if (run.stopped)
    outcome.result = PolicyOutcome::Result::stopped;
  else if (run.exitCode != 0)
    outcome = PolicyOutcome::failed(_translator.getTranslationError(run, errorFile));
  else
    outcome = handleHIDSResult(names);
  ignoreResult(removeIfThere(_parts.files, errorFile));
  return outcome;
}

PolicyOutcome PolicyPipeline::handleHIDSResult(const PolicyFiles& names) {
  platform::Files& files = _parts.files;
  if (presenceOf(files, names.freshMinus) == Presence::absent)
    return PolicyOutcome::failed("The translator produced no policy.");
  if (flushFile(files, names.freshMinus) == 0 &&
      files.replace(names.freshMinus, names.minus) == 0 &&
      files.flushDirectory(platform::directoryOf(names.minus)) == 0)
    return {};
  return PolicyOutcome::failed("Cannot write to file : " + names.minus);
}

}  // namespace korvane
