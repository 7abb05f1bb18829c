#include "update/policy/policy_change.h"

#include <cerrno>

#include "config/agent_config.h"
#include "eventlog/event_log.h"
#include "platform/files.h"
#include "platform/platform.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kChangeTag[] = "PolicyChange";

platform::Files& files() {
  return platform::current().files;
}

int flushFolder() {
  return files().flushDirectory(driverDirectory());
}

bool traced(const char* what, const std::string& path, int error) {
  eventlog::trace(kChangeTag, "%s %s: error %d", what, path, error);
  return false;
}

// The backup, which is there only when the change had come to this file, goes back into its place.
bool putBack(const std::string& backup, const std::string& path, bool hadFile) {
  if (!hadFile) {
    const int error = removeIfThere(path);
    return error == 0 || traced("Cannot remove", path, error);
  }
  const int error = files().replace(backup, path);
  return error == 0 || error == ENOENT || traced("Cannot put back", path, error);
}

bool undoFiles(const PolicyJournal& journal) {
  const PolicyFiles names(journal.newPlusFile);
  if (!putBack(names.oldMinus, names.minus, journal.hadMinus)) return false;
  if (!putBack(names.oldItems, names.items, journal.hadItems)) return false;
  for (const std::string& fresh : {names.freshMinus, names.freshItems})
    if (const int error = removeIfThere(fresh)) traced("Cannot remove", fresh, error);
  const int error = flushFolder();
  return error == 0 || traced("Cannot flush", driverDirectory(), error);
}

bool undoDriver(Driver& driver, const PolicySetting& setting) {
  const int result = driver.restorePolicySetting(setting).code;
  // It refuses what it had; there is nothing else to give it, and it keeps a whole policy.
  if (result == NotifyResult::finishedWithError)
    eventlog::event(EventId::formerPolicyNotAccepted, kChangeTag, {setting.filterFile});
  return result == 0 || result == NotifyResult::finishedWithError;
}

bool undoSettings(const PolicyJournal& journal) {
  AgentConfig& config = *AgentConfig::getInstance();
  {
    const AgentConfig::ChangeGroup group(config);
    config.setPlusPolicyFile(journal.plusFile);
    config.setPlusDBPath(journal.path);
    config.setPlusVersion(journal.version);
    config.setPlusID(journal.id);
    config.setUseBuiltInPolicy(journal.useBuiltIn);
  }
  return config.updateIniFile();
}

bool driverAgrees(Driver& driver, const PolicySetting& setting) {
  PolicySetting now;
  return driver.policySetting(now) && now == setting;
}

// Every step may be done again: what is undone already stays so.
bool undoChange(Driver& driver, const PolicyJournal& journal, bool driverUntouched) {
  if (!undoFiles(journal)) return false;
  if (!(driverUntouched && driverAgrees(driver, journal.driver)) &&
      !undoDriver(driver, journal.driver))
    return false;
  if (!undoSettings(journal)) return false;
  const int error = removePolicyJournal();
  return error == 0 || traced("Cannot remove", policyJournalPath(), error);
}

// What is missing of these files and was set aside.
bool putBackMissing(const PolicyFiles& names) {
  for (const auto& [backup, path] :
       {std::pair(names.oldMinus, names.minus), {names.oldItems, names.items}})
    if (presenceOf(path) == Presence::absent && !putBack(backup, path, true)) return false;
  // The journal may go only when they are sure.
  const int error = flushFolder();
  return error == 0 || traced("Cannot flush", driverDirectory(), error);
}

// Without a journal that can be read, what agent.ini names is taken for what is to be in force.
bool repair(Driver& driver) {
  const AgentConfig& config = *AgentConfig::getInstance();
  const STRING plus = config.getPlusPolicyFile();
  const PolicyFiles names(plus);
  if (!plus.empty() && !putBackMissing(names)) return false;
  PolicySetting setting{driver.minusFile(), true};
  if (!config.useBuiltInPolicy() && presenceOf(names.minus) == Presence::present)
    setting = {names.minus, false};
  if (!undoDriver(driver, setting)) return false;
  const std::string path = policyJournalPath();
  const int error = files().replace(path, path + ".damaged");
  return error == 0 || traced("Cannot set aside", path, error);
}

}  // namespace

bool PolicyChange::fail(const char* what, const std::string& path, int error) {
  traced(what, path, error);
  _problem = STRING(what) + " " + path + ": error " + STRING::fromInt(error);
  return false;
}

bool PolicyChange::takeState() {
  const AgentConfig& config = *AgentConfig::getInstance();
  _journal.plusFile = config.getPlusPolicyFile();
  _journal.path = config.getPlusDBPath();
  _journal.version = config.getPlusVersion();
  _journal.id = config.getPlusID();
  _journal.useBuiltIn = config.useBuiltInPolicy();
  if (!_driver.policySetting(_journal.driver))
    return fail("Cannot read the driver's settings for", _files.minus, EIO);
  const Presence minus = presenceOf(_files.minus);
  const Presence items = presenceOf(_files.items);
  if (minus == Presence::unknown || items == Presence::unknown)
    return fail("Cannot look at", _files.minus, EIO);
  _journal.hadMinus = minus == Presence::present;
  _journal.hadItems = items == Presence::present;
  return true;
}

// A backup of another time would be taken for this change's, so it is surely gone before
// there is a journal.
bool PolicyChange::removeStaleBackups() {
  for (const std::string& backup : {_files.oldMinus, _files.oldItems})
    if (const int error = removeIfThere(backup)) return fail("Cannot remove", backup, error);
  return flush();
}

bool PolicyChange::flush() {
  const int error = flushFolder();
  return error == 0 || fail("Cannot flush", driverDirectory(), error);
}

bool PolicyChange::begin() {
  if (reconcilePolicy(_driver) == Reconciled::failed) {
    _problem = "The previous policy change could not be rolled back.";
    return false;
  }
  if (!takeState() || !removeStaleBackups()) return false;
  if (const int error = writePolicyJournal(_journal)) {
    fail("Cannot write", policyJournalPath(), error);
    // A journal that stays is undone by the next start, to what still stands.
    ignoreResult(removePolicyJournal());
    return false;
  }
  return true;
}

// What the translator wrote is not sure before it has been flushed here. A backup is sure before
// its place is taken: of two changes of a folder a file system may keep the second alone.
bool PolicyChange::exchange(const std::string& fresh, const std::string& path,
                            const std::string& backup, bool hadFile) {
  if (const int error = flushFile(fresh)) return fail("Cannot flush", fresh, error);
  if (hadFile) {
    if (const int error = files().replace(path, backup))
      return fail("Cannot set aside", path, error);
    if (!flush()) return false;
  }
  if (const int error = files().replace(fresh, path))
    return fail("Cannot put in place", path, error);
  return flush();
}

bool PolicyChange::takeMinus() {
  return exchange(_files.freshMinus, _files.minus, _files.oldMinus, _journal.hadMinus);
}

bool PolicyChange::takeItems() {
  if (presenceOf(_files.freshItems) != Presence::absent)
    return exchange(_files.freshItems, _files.items, _files.oldItems, _journal.hadItems);
  eventlog::trace(kChangeTag, "The translator produced no items: %s", _files.freshItems);
  return true;
}

// Each of the two writes is tried twice, since undoing for a fault that has passed would
// cost the policy.
bool PolicyChange::commit(const std::function<void()>& record) {
  AgentConfig& config = *AgentConfig::getInstance();
  {
    const AgentConfig::ChangeGroup group(config);
    record();
  }
  if (!config.updateIniFile() && !config.updateIniFile())
    return fail("Cannot record the policy in agent.ini for", _files.minus, EIO);
  int error = removePolicyJournal();
  if (error != 0) error = removePolicyJournal();
  if (error != 0) {
    // The file that could not be removed holds the same.
    ignoreResult(writePolicyJournal(_journal));
    return fail("Cannot remove", policyJournalPath(), error);
  }
  for (const std::string& backup : {_files.oldMinus, _files.oldItems})
    if (const int left = removeIfThere(backup)) traced("Cannot remove", backup, left);
  return true;
}

bool PolicyChange::undo(bool driverUntouched) {
  if (undoChange(_driver, _journal, driverUntouched)) return true;
  eventlog::event(EventId::policyChangeNotRolledBack, kChangeTag, {_files.minus});
  return false;
}

Reconciled reconcilePolicy(Driver& driver) {
  PolicyJournal journal;
  const int error = readPolicyJournal(journal);
  if (error == ENOENT) return Reconciled::nothing;
  bool done = false;
  if (error == EBADMSG) {
    eventlog::event(EventId::policyJournalDamaged, kChangeTag, {policyJournalPath()});
    done = repair(driver);
    if (done) return Reconciled::repaired;
  } else if (error == 0) {
    done = undoChange(driver, journal, false);
  }
  if (done) {
    eventlog::event(EventId::policyChangeRolledBack, kChangeTag,
                    {journal.newPlusFile, journal.version});
    return Reconciled::undone;
  }
  eventlog::event(EventId::policyChangeNotRolledBack, kChangeTag, {policyJournalPath()});
  return Reconciled::failed;
}

}  // namespace korvane
