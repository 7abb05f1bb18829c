#include "update/policy/policy_pipeline.h"

#include <memory>

#include "config/policy_settings.h"
#include "config/settings_file.h"
#include "driver/driver.h"
#include "eventlog/event_log.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "util/dates.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kTranslateTag[] = "translatePolicy";
constexpr char kRetranslateTag[] = "PolicyProcessor::retranslatePolicy";

}  // namespace

PolicyPipeline::Attempt::Attempt(const STRING& plusFile, const STRING& name,
                                 platform::Clock& ofAgent)
    : clock(ofAgent), files(plusFile), startedMs(ofAgent.monotonicMs()) {
  record.time = formatTimestamp(clock.wallMs());
  record.plusFile = plusFile;
  record.name = name;
}

HistoryRecord PolicyPipeline::Attempt::finished() const {
  HistoryRecord whole = record;
  whole.durationMs = clock.monotonicMs() - startedMs;
  return whole;
}

PolicyPipeline::PolicyPipeline(const Parts& parts)
    : _parts(parts),
      _translator(parts.files, parts.processes, parts.rights, parts.stop),
      _history(parts.files) {}

bool PolicyPipeline::canRead(const STRING& plusFile, const char* context) {
  std::unique_ptr<platform::File> file;
  if (!plusFile.empty() &&
      _parts.files.open(plusFile.toUtf8(), platform::OpenMode::read, file) == 0)
    return true;
  eventlog::trace(context, "Plus file missing %s", plusFile);
  return false;
}

void PolicyPipeline::discard(const PolicyFiles& names) {
  for (const std::string& fresh : {names.freshMinus, names.freshItems})
    if (const int error = removeIfThere(_parts.files, fresh))
      eventlog::trace(kTranslateTag, "Cannot remove %s: error %d", fresh, error);
}

PolicyOutcome PolicyPipeline::translatePolicy(const STRING& plusFile,
                                              const ReceivedPolicy* received) {
  if (!canRead(plusFile, kTranslateTag)) return {PolicyOutcome::Result::missing};
  Attempt attempt(plusFile, received ? received->name : STRING(), _parts.clock);
  discard(attempt.files);
  PolicyOutcome outcome = runTranslatorFor(attempt);
  if (outcome && isUnchanged(attempt)) {
    installItemsAlone(attempt.files);
    outcome.result = PolicyOutcome::Result::unchanged;
  } else if (outcome) {
    outcome = load(attempt, received);
  }
  if (!outcome) discard(attempt.files);
  return outcome;
}

PolicyOutcome PolicyPipeline::runTranslatorFor(Attempt& attempt) {
  const PolicyFiles& names = attempt.files;
  const STRING configured = _parts.settings.getPlusPolicyFile();
  const STRING previousItems =
      configured.empty() ? STRING() : STRING(PolicyFiles(configured).items);
  const Presence minus = presenceOf(_parts.files, names.minus);
  if (minus == Presence::unknown)
    return giveUp(attempt, kNotRecorded, "Cannot look at " + names.minus);
  attempt.hadMinus = minus == Presence::present;
  const TranslatorResult run = _translator.run(
      {"-agent", attempt.record.plusFile, names.freshMinus, names.freshItems, previousItems});
  if (run.stopped) return {PolicyOutcome::Result::stopped};
  if (run.exitCode != 0)
    return giveUp(attempt, run.exitCode, _translator.getTranslationError(run, names.freshMinus));
  if (presenceOf(_parts.files, names.freshMinus) == Presence::present) return {};
  return giveUp(attempt, run.exitCode, "The translator produced no policy.");
}

bool PolicyPipeline::isUnchanged(const Attempt& attempt) {
  return attempt.hadMinus &&
         sameContent(_parts.files, attempt.files.freshMinus, attempt.files.minus);
}

// Should the change of name get lost, the former items bring about this translation once more.
void PolicyPipeline::installItemsAlone(const PolicyFiles& names) {
  if (flushFile(_parts.files, names.freshItems) != 0 ||
      _parts.files.replace(names.freshItems, names.items) != 0)
    eventlog::trace(kTranslateTag, "The new items cannot be saved: %s", names.items);
}

PolicyOutcome PolicyPipeline::giveUp(Attempt& attempt, int code, const STRING& text) {
  attempt.record.resultCode = code;
  attempt.record.errorText = text;
  UpdateHistoryIPS(attempt);
  return PolicyOutcome::failed(text);
}

PolicyOutcome PolicyPipeline::retranslatePolicy() {
  PolicySettings& settings = _parts.settings;
  PolicyOutcome outcome{PolicyOutcome::Result::bypassed};
  if (_parts.driver.usingBuiltIn()) {
    eventlog::trace(kRetranslateTag,
                    "Bypassing policy retranslation because built-in IPS Policy is in use");
  } else {
    eventlog::trace(kRetranslateTag, "Retranslating policy");
    settings.setRetranslationActive(true);
    outcome = translatePolicy(settings.getPlusPolicyFile(), nullptr);
    settings.setRetranslationActive(false);
  }
  if (!outcome.stopped() && settings.getRetranslateNow()) {
    settings.setRetranslateNow(false);
    // What cannot be written now is written by one of the next loads.
    ignoreResult(_parts.settingsFile.updateIniFile());
  }
  return outcome;
}

void PolicyPipeline::UpdateHistoryIPS(const Attempt& attempt) {
  HistoryRecord record = attempt.finished();
  record.minusFile = attempt.files.minus;
  record.itemsFile = attempt.files.items;
  _history.add(PolicyHistory::ips, record);
}

void PolicyPipeline::UpdateHistoryIDS(const Attempt& attempt) {
  _history.add(PolicyHistory::ids, attempt.finished());
}

}  // namespace korvane
