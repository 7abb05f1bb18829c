#include "update/policy/policy_processor.h"

#include <memory>

#include "agent/thread/stop_token.h"
#include "config/agent_config.h"
#include "driver/driver.h"
#include "eventlog/event_log.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/platform.h"
#include "update/policy/policy_attempt.h"
#include "update/policy/policy_change.h"
#include "update/policy/translator_program.h"
#include "util/dates.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kTranslateTag[] = "translatePolicy";
constexpr char kRetranslateTag[] = "PolicyProcessor::retranslatePolicy";
// In the history, what the driver interface answered is told from the translator's exit codes.
constexpr int kDriverResultBase = 1000;
constexpr int kNotRecorded = 2000;

platform::Platform& system() {
  return platform::current();
}

bool canRead(const STRING& path) {
  std::unique_ptr<platform::File> file;
  return system().files.open(path.toUtf8(), platform::OpenMode::read, file) == 0;
}

void discard(const PolicyFiles& files) {
  for (const std::string& fresh : {files.freshMinus, files.freshItems})
    if (const int error = removeIfThere(fresh))
      eventlog::trace(kTranslateTag, "Cannot remove %s: error %d", fresh, error);
}

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

PolicyProcessor::Attempt::Attempt(const STRING& plus, const STRING& name)
    : plusFile(plus), files(plus), startedMs(system().clock.monotonicMs()) {
  record.time = formatTimestamp(system().clock.wallMs());
  record.plusFile = plus;
  record.name = name;
}

HistoryRecord PolicyProcessor::Attempt::finished() const {
  HistoryRecord whole = record;
  whole.durationMs = system().clock.monotonicMs() - startedMs;
  return whole;
}

PolicyProcessor::PolicyProcessor() : PolicyProcessor(currentDriver()) {}
PolicyProcessor::PolicyProcessor(Driver& driver) : _driver(driver), _retrans(driver) {}
PolicyProcessor::~PolicyProcessor() = default;

bool PolicyProcessor::canTranslate(const STRING& plusFile, const char* context) {
  _errorText.clear();
  _stopped = false;
  if (!plusFile.empty() && canRead(plusFile)) return true;
  _retranslating = false;
  eventlog::trace(context, "Plus file missing %s", plusFile);
  return false;
}

bool PolicyProcessor::translatePolicy(const STRING& plusFile) {
  return translate(plusFile, nullptr);
}

bool PolicyProcessor::translate(const STRING& plusFile, const Received* received) {
  if (!canTranslate(plusFile, kTranslateTag)) return false;
  Attempt attempt(plusFile, received ? received->name : STRING());
  discard(attempt.files);
  if (!runTranslatorFor(attempt)) {
    discard(attempt.files);
    return false;
  }
  if (takeUnchanged(attempt)) return false;
  const bool loaded = load(attempt, received);
  if (!loaded) discard(attempt.files);
  return loaded;
}

bool PolicyProcessor::runTranslatorFor(Attempt& attempt) {
  const STRING configured = AgentConfig::getInstance()->getPlusPolicyFile();
  const STRING previousItems =
      configured.empty() ? STRING() : STRING(PolicyFiles(configured).items);
  const Presence minus = presenceOf(attempt.files.minus);
  if (minus == Presence::unknown)
    return giveUp(attempt, kNotRecorded, "Cannot look at " + attempt.files.minus);
  attempt.hadMinus = minus == Presence::present;
  const int code = RunTranslator("-agent", attempt.plusFile, attempt.files.freshMinus,
                                 attempt.files.freshItems, previousItems);
  if (_stopped) return false;
  if (code != 0) return giveUp(attempt, code, getTranslationError(code, attempt.files.freshMinus));
  if (presenceOf(attempt.files.freshMinus) == Presence::present) return true;
  return giveUp(attempt, code, "The translator produced no policy.");
}

bool PolicyProcessor::takeUnchanged(const Attempt& attempt) {
  const PolicyFiles& files = attempt.files;
  if (!attempt.hadMinus || !sameContent(files.freshMinus, files.minus)) return false;
  _retranslating = false;
  // Should the change of name get lost, the former items bring about this translation once more.
  if (flushFile(files.freshItems) != 0 ||
      system().files.replace(files.freshItems, files.items) != 0)
    eventlog::trace(kTranslateTag, "The new items cannot be saved: %s", files.items);
  discard(files);
  // Without its items a policy is not checked for retranslation; that has been told.
  ignoreResult(loadRetransItems());
  return true;
}

bool PolicyProcessor::load(Attempt& attempt, const Received* received) {
  PolicyChange change(attempt.plusFile, _driver);
  if (!change.begin()) return giveUp(attempt, kNotRecorded, change.problem());
  if (!change.takeMinus()) {
    // Undoing tells of its own failure.
    ignoreResult(change.undo(true));
    return giveUp(attempt, kNotRecorded, change.problem());
  }
  return loadIntoDriver(change, attempt) && recordLoaded(change, attempt, received);
}

bool PolicyProcessor::loadIntoDriver(PolicyChange& change, Attempt& attempt) {
  const DriverResult loaded = _driver.newPolicy(attempt.files.minus, change.driverBefore());
  if (loaded.ok()) return true;
  // Undoing tells of its own failure.
  ignoreResult(change.undo(loaded.code == NotifyResult::finishedWithError ||
                           loaded.code == NotifyResult::notOpened));
  // A stop ends the wait for the driver; what that came to is not the policy's fault.
  _stopped = shutdownToken().requested();
  return _stopped ? false : giveUp(attempt, kDriverResultBase + loaded.code, loaded.text);
}

bool PolicyProcessor::recordLoaded(PolicyChange& change, Attempt& attempt,
                                   const Received* received) {
  AgentConfig& config = *AgentConfig::getInstance();
  const bool hadPolicy = attempt.hadMinus || !config.getPlusPolicyFile().empty();
  AppliedPolicy applied;
  const bool known = askForPolicy(_driver, applied);
  if (known) {
    attempt.record.name = applied.name;
    attempt.record.version = applied.version;
  } else {
    attempt.record.version = versionIn(received ? received->name : config.getPlusVersion());
  }
  const bool held = change.takeItems() && change.commit([&] {
    if (known || received) config.setPlusID(applied.id);
    if (known) config.setPlusVersion(attempt.record.name + " " + attempt.record.version);
    if (!received) return;
    if (!known) config.setPlusVersion(received->name);
    config.setPlusPolicyFile(attempt.plusFile);
    config.setPlusDBPath(received->path);
    config.setUseBuiltInPolicy(false);
  });
  if (!held) {
    const STRING problem = change.problem();
    // Undoing tells of its own failure.
    ignoreResult(change.undo(false));
    return giveUp(attempt, kNotRecorded, problem);
  }
  config.leaveBuiltInState();
  if (hadPolicy && !_retranslating)
    eventlog::event(EventId::policyInForce, kTranslateTag, {attempt.record.version});
  UpdateHistoryIPS(attempt);
  return true;
}

bool PolicyProcessor::giveUp(Attempt& attempt, int code, const STRING& text) {
  _retranslating = false;
  _errorText = text;
  attempt.record.resultCode = code;
  attempt.record.errorText = text;
  UpdateHistoryIPS(attempt);
  return false;
}

bool PolicyProcessor::retranslatePolicy() {
  AgentConfig& config = *AgentConfig::getInstance();
  bool loaded = false;
  _stopped = false;
  if (_driver.usingBuiltIn()) {
    eventlog::trace(kRetranslateTag,
                    "Bypassing policy retranslation because built-in IPS Policy is in use");
  } else {
    eventlog::trace(kRetranslateTag, "Retranslating policy");
    _retranslating = true;
    config.setRetranslationActive(true);
    loaded = translatePolicy(config.getPlusPolicyFile());
    config.setRetranslationActive(false);
    _retranslating = false;
    // Without its items a policy is not checked for retranslation; that has been told.
    if (loaded) ignoreResult(loadRetransItems());
  }
  if (!_stopped && config.getRetranslateNow()) {
    config.setRetranslateNow(false);
    // What cannot be written now is written by one of the next loads.
    ignoreResult(config.updateIniFile());
  }
  return loaded;
}

bool PolicyProcessor::loadRetransItems() {
  const STRING plus = AgentConfig::getInstance()->getPlusPolicyFile();
  return !plus.empty() && _retrans.loadRetransItems(PolicyFiles(plus).items);
}

bool PolicyProcessor::checkRetrans() {
  return _retrans.checkRetrans();
}

int PolicyProcessor::RunTranslator(const STRING& agentArg, const STRING& plusFile,
                                   const STRING& out1, const STRING& out2,
                                   const STRING& prevItemsFile) {
  const TranslatorResult result = runTranslator({agentArg, plusFile, out1, out2, prevItemsFile});
  _stopped = result.stopped;
  return result.exitCode;
}

STRING PolicyProcessor::getTranslationError(int code, const STRING& out1) {
  return translationError(code, out1);
}

bool PolicyProcessor::InitializePloicyHistory() {
  return _history.initialize();
}

void PolicyProcessor::UpdateHistoryIPS(const Attempt& attempt) {
  HistoryRecord record = attempt.finished();
  record.minusFile = attempt.files.minus;
  record.itemsFile = attempt.files.items;
  _history.add(PolicyHistory::ips, record);
}

void PolicyProcessor::UpdateHistoryIDS(const Attempt& attempt) {
  _history.add(PolicyHistory::ids, attempt.finished());
}

}  // namespace korvane
