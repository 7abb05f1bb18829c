// PolicyPipeline: a translated policy into the driver, and into the settings as the one in force.
#include "agent/thread/stop_token.h"
#include "config/policy_settings.h"
#include "driver/driver.h"
#include "eventlog/event_log.h"
#include "update/policy/policy_pipeline.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kLoadingTag[] = "translatePolicy";
// In the history, what the driver interface answered is told from the translator's exit codes.
constexpr int kDriverResultBase = 1000;

// Of a policy that the driver does not tell of yet, what the server calls it: "Base 4" is
// version 4.
STRING versionIn(const STRING& name) {
  const std::string text = name.toUtf8();
  return text.substr(text.find_last_of(' ') + 1);
}

// The driver answers for what it has; a question that gets lost is put again.
bool askForPolicy(Driver& driver, AppliedPolicy& policy) {
  return driver.queryPolicy(policy).ok() || driver.queryPolicy(policy).ok();
}

}  // namespace

PolicyOutcome PolicyPipeline::load(Attempt& attempt, const ReceivedPolicy* received) {
  PolicyChange change(attempt.record.plusFile, _parts);
  if (!change.begin()) return giveUp(attempt, kNotRecorded, change.problem());
  if (!change.installMinus()) {
    // Undoing tells of its own failure.
    ignoreResult(change.undo(true));
    return giveUp(attempt, kNotRecorded, change.problem());
  }
  const PolicyOutcome loaded = loadIntoDriver(change, attempt);
  return loaded ? recordLoaded(change, attempt, received) : loaded;
}

PolicyOutcome PolicyPipeline::loadIntoDriver(PolicyChange& change, Attempt& attempt) {
  const DriverResult loaded = _parts.driver.newPolicy(attempt.files.minus, change.driverBefore());
  if (loaded.ok()) return {};
  // Undoing tells of its own failure.
  ignoreResult(change.undo(loaded.code == NotifyResult::finishedWithError ||
                           loaded.code == NotifyResult::notOpened));
  // A stop ends the wait for the driver; what that came to is not the policy's fault.
  if (_parts.stop.requested()) return {PolicyOutcome::Result::stopped};
  return giveUp(attempt, kDriverResultBase + loaded.code, loaded.text);
}

PolicyOutcome PolicyPipeline::recordLoaded(PolicyChange& change, Attempt& attempt,
                                           const ReceivedPolicy* received) {
  PolicySettings& settings = _parts.settings;
  const bool hadPolicy = attempt.hadMinus || !settings.getPlusPolicyFile().empty();
  AppliedPolicy applied;
  const bool known = askForPolicy(_parts.driver, applied);
  if (known) {
    attempt.record.name = applied.name;
    attempt.record.version = applied.version;
  } else {
    attempt.record.version = versionIn(received ? received->name : settings.getPlusVersion());
  }
  const bool held = change.installItems() && change.commit([&] {
    if (known || received) settings.setPlusID(applied.id);
    if (known) settings.setPlusVersion(attempt.record.name + " " + attempt.record.version);
    if (!received) return;
    if (!known) settings.setPlusVersion(received->name);
    settings.setPlusPolicyFile(attempt.record.plusFile);
    settings.setPlusDBPath(received->path);
    settings.setUseBuiltInPolicy(false);
  });
  if (!held) {
    const STRING problem = change.problem();
    // Undoing tells of its own failure.
    ignoreResult(change.undo(false));
    return giveUp(attempt, kNotRecorded, problem);
  }
  settings.setPolicyEffectiveDate(_parts.driver.recorded().policySinceMs);
  settings.leaveBuiltInState();
  if (hadPolicy && received)
    eventlog::event(EventId::policyInForce, kLoadingTag, {attempt.record.version});
  UpdateHistoryIPS(attempt);
  return {};
}

}  // namespace korvane
