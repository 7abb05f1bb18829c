#include "update/policy/policy_change.h"

#include <cerrno>

#include "config/policy_settings.h"
#include "config/settings_file.h"
#include "eventlog/event_log.h"
#include "platform/files.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kChangeTag[] = "PolicyChange";

using ChangeParts = PolicyChange::Parts;

int flushFolder(platform::Files& files) {
  return files.flushDirectory(driverDirectory(files));
}

bool traced(const char* what, const std::string& path, int error) {
  eventlog::trace(kChangeTag, "%s %s: error %d", what, path, error);
  return false;
}

// The backup, which is there only when the change had come to this file, goes back into its place.
bool putBack(platform::Files& files, const std::string& backup, const std::string& path,
             bool hadFile) {
  if (!hadFile) {
    const int error = removeIfThere(files, path);
    return error == 0 || traced("Cannot remove", path, error);
  }
  const int error = files.replace(backup, path);
  return error == 0 || error == ENOENT || traced("Cannot put back", path, error);
}

bool undoFiles(platform::Files& files, const PolicyJournal& journal) {
  const PolicyFiles names(journal.newPlusFile);
  if (!putBack(files, names.oldMinus, names.minus, journal.hadMinus)) return false;
  if (!putBack(files, names.oldItems, names.items, journal.hadItems)) return false;
  for (const std::string& fresh : {names.freshMinus, names.freshItems})
    if (const int error = removeIfThere(files, fresh)) traced("Cannot remove", fresh, error);
  const int error = flushFolder(files);
  return error == 0 || traced("Cannot flush", driverDirectory(files), error);
}

bool undoDriver(Driver& driver, const PolicySetting& setting) {
  const int result = driver.restorePolicySetting(setting).code;
  // It refuses what it had; there is nothing else to give it, and it keeps a whole policy.
  if (result == NotifyResult::finishedWithError)
    eventlog::event(EventId::formerPolicyNotAccepted, kChangeTag, {setting.filterFile});
  return result == 0 || result == NotifyResult::finishedWithError;
}

bool undoSettings(const ChangeParts& parts, const PolicyJournal& journal) {
  {
    const SettingsFile::ChangeGroup group(parts.settingsFile);
    parts.settings.setPlusPolicyFile(journal.plusFile);
    parts.settings.setPlusDBPath(journal.path);
    parts.settings.setPlusVersion(journal.version);
    parts.settings.setPlusID(journal.id);
    parts.settings.setUseBuiltInPolicy(journal.useBuiltIn);
  }
  return parts.settingsFile.updateIniFile();
}

bool driverAgrees(Driver& driver, const PolicySetting& setting) {
  PolicySetting now;
  return driver.policySetting(now) && now == setting;
}

// Every step may be done again: what is undone already stays so.
bool undoChange(const ChangeParts& parts, const PolicyJournal& journal, bool driverUntouched) {
  if (!undoFiles(parts.files, journal)) return false;
  if (!(driverUntouched && driverAgrees(parts.driver, journal.driver)) &&
      !undoDriver(parts.driver, journal.driver))
    return false;
  if (!undoSettings(parts, journal)) return false;
  const int error = removePolicyJournal(parts.files);
  return error == 0 || traced("Cannot remove", policyJournalPath(parts.files), error);
}

// What is missing of these files and was set aside.
bool putBackMissing(platform::Files& files, const PolicyFiles& names) {
  for (const auto& [backup, path] :
       {std::pair(names.oldMinus, names.minus), {names.oldItems, names.items}})
    if (presenceOf(files, path) == Presence::absent && !putBack(files, backup, path, true))
      return false;
  // The journal may go only when they are sure.
  const int error = flushFolder(files);
  return error == 0 || traced("Cannot flush", driverDirectory(files), error);
}

// Without a journal that can be read, what agent.ini names is taken for what is to be in force.
bool repair(const ChangeParts& parts) {
  const STRING plus = parts.settings.getPlusPolicyFile();
  const PolicyFiles names(plus);
  if (!plus.empty() && !putBackMissing(parts.files, names)) return false;
  PolicySetting setting{parts.driver.minusFile(), true};
  if (!parts.settings.useBuiltInPolicy() &&
      presenceOf(parts.files, names.minus) == Presence::present)
    setting = {names.minus, false};
  if (!undoDriver(parts.driver, setting)) return false;
  const std::string path = policyJournalPath(parts.files);
  const int error = parts.files.replace(path, path + ".damaged");
  return error == 0 || traced("Cannot set aside", path, error);
}

}  // namespace

bool PolicyChange::fail(const char* what, const std::string& path, int error) {
  traced(what, path, error);
  _problem = STRING(what) + " " + path + ": error " + STRING::fromInt(error);
  return false;
}

bool PolicyChange::recordState() {
  const PolicySettings& settings = _parts.settings;
  _journal.plusFile = settings.getPlusPolicyFile();
  _journal.path = settings.getPlusDBPath();
  _journal.version = settings.getPlusVersion();
  _journal.id = settings.getPlusID();
  _journal.useBuiltIn = settings.useBuiltInPolicy();
  if (!_parts.driver.policySetting(_journal.driver))
    return fail("Cannot read the driver's settings for", _names.minus, EIO);
  const Presence minus = presenceOf(_parts.files, _names.minus);
  const Presence items = presenceOf(_parts.files, _names.items);
  if (minus == Presence::unknown || items == Presence::unknown)
    return fail("Cannot look at", _names.minus, EIO);
  _journal.hadMinus = minus == Presence::present;
  _journal.hadItems = items == Presence::present;
  return true;
}

// A backup of another time would be taken for this change's, so it is surely gone before
// there is a journal.
bool PolicyChange::removeStaleBackups() {
  for (const std::string& backup : {_names.oldMinus, _names.oldItems})
    if (const int error = removeIfThere(_parts.files, backup))
      return fail("Cannot remove", backup, error);
  return flush();
}

bool PolicyChange::flush() {
  const int error = flushFolder(_parts.files);
  return error == 0 || fail("Cannot flush", driverDirectory(_parts.files), error);
}

bool PolicyChange::begin() {
  if (reconcilePolicy(_parts) == Reconciled::failed) {
    _problem = "The previous policy change could not be rolled back.";
    return false;
  }
  if (!recordState() || !removeStaleBackups()) return false;
  if (const int error = writePolicyJournal(_parts.files, _journal)) {
    fail("Cannot write", policyJournalPath(_parts.files), error);
    // A journal that stays is undone by the next start, to what still stands.
    ignoreResult(removePolicyJournal(_parts.files));
    return false;
  }
  return true;
}

// What the translator wrote is not sure before it has been flushed here. A backup is sure before
// its place is taken: of two changes of a folder a file system may keep the second alone.
bool PolicyChange::exchange(const std::string& fresh, const std::string& path,
                            const std::string& backup, bool hadFile) {
  if (const int error = flushFile(_parts.files, fresh)) return fail("Cannot flush", fresh, error);
  if (hadFile) {
    if (const int error = _parts.files.replace(path, backup))
      return fail("Cannot set aside", path, error);
    if (!flush()) return false;
  }
  if (const int error = _parts.files.replace(fresh, path))
    return fail("Cannot put in place", path, error);
  return flush();
}

bool PolicyChange::installMinus() {
  return exchange(_names.freshMinus, _names.minus, _names.oldMinus, _journal.hadMinus);
}

bool PolicyChange::installItems() {
  if (presenceOf(_parts.files, _names.freshItems) != Presence::absent)
    return exchange(_names.freshItems, _names.items, _names.oldItems, _journal.hadItems);
  eventlog::trace(kChangeTag, "The translator produced no items: %s", _names.freshItems);
  return true;
}

// Each of the two writes is tried twice, since undoing for a fault that has passed would
// cost the policy.
bool PolicyChange::commit(const std::function<void()>& record) {
  {
    const SettingsFile::ChangeGroup group(_parts.settingsFile);
    record();
  }
  if (!_parts.settingsFile.updateIniFile() && !_parts.settingsFile.updateIniFile())
    return fail("Cannot record the policy in agent.ini for", _names.minus, EIO);
  int error = removePolicyJournal(_parts.files);
  if (error != 0) error = removePolicyJournal(_parts.files);
  if (error != 0) {
    // The file that could not be removed holds the same.
    ignoreResult(writePolicyJournal(_parts.files, _journal));
    return fail("Cannot remove", policyJournalPath(_parts.files), error);
  }
  for (const std::string& backup : {_names.oldMinus, _names.oldItems})
    if (const int left = removeIfThere(_parts.files, backup)) traced("Cannot remove", backup, left);
  return true;
}

bool PolicyChange::undo(bool driverUntouched) {
  if (undoChange(_parts, _journal, driverUntouched)) return true;
  eventlog::event(EventId::policyChangeNotRolledBack, kChangeTag, {_names.minus});
  return false;
}

Reconciled reconcilePolicy(const PolicyChange::Parts& parts) {
  PolicyJournal journal;
  const int error = readPolicyJournal(parts.files, journal);
  if (error == ENOENT) return Reconciled::nothing;
  bool done = false;
  if (error == EBADMSG) {
    eventlog::event(EventId::policyJournalDamaged, kChangeTag, {policyJournalPath(parts.files)});
    done = repair(parts);
    if (done) return Reconciled::repaired;
  } else if (error == 0) {
    done = undoChange(parts, journal, false);
  }
  if (done) {
    eventlog::event(EventId::policyChangeRolledBack, kChangeTag,
                    {journal.newPlusFile, journal.version});
    return Reconciled::undone;
  }
  eventlog::event(EventId::policyChangeNotRolledBack, kChangeTag, {policyJournalPath(parts.files)});
  return Reconciled::failed;
}

}  // namespace korvane
