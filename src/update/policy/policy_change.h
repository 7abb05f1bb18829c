// One change of the policy in force, from its journal to its commit, and its rollback.
//
//   begin()       the journal is on disk: from here on a crash is undone by reconcilePolicy()
//   installMinus()   the fresh minus file is in place, the former one beside it
//   ...           the driver is told (Driver::newPolicy, with driverBefore())
//   installItems()   the fresh items are in place
//   commit()      settings recorded, journal gone: the new policy holds
// or, after any of them, undo().
//
// Lifetime: one object per change; destroying it undoes nothing. Used by the owner of the policy
// alone.
// Errors: false, with problem(), or for reconcilePolicy() an event.
#pragma once

#include <functional>
#include <string>

#include "update/policy/policy_files.h"
#include "update/policy/policy_journal.h"

namespace korvane {

class PolicySettings;
class SettingsFile;

class PolicyChange {
 public:
  // What a change touches; all of it outlives the change.
  struct Parts {
    platform::Files& files;
    Driver& driver;
    PolicySettings& settings;
    SettingsFile& settingsFile;
  };

  PolicyChange(const STRING& plusFile, const Parts& parts) : _names(plusFile), _parts(parts) {
    _journal.newPlusFile = plusFile;
  }

  // Undoes first what an earlier change has left; false also when that fails.
  [[nodiscard]] bool begin();
  [[nodiscard]] bool installMinus();
  [[nodiscard]] bool installItems();
  // record: puts the new settings into the store; they are written together.
  [[nodiscard]] bool commit(const std::function<void()>& record);
  // Everything as it was. driverUntouched: the driver surely has its former policy.
  // False when something is left to do; the journal stays then.
  [[nodiscard]] bool undo(bool driverUntouched);

  // What the driver was set to when the change began.
  const PolicySetting& driverBefore() const { return _journal.driver; }
  bool hadPolicy() const { return _journal.hadMinus; }
  const STRING& problem() const { return _problem; }

 private:
  [[nodiscard]] bool recordState();
  [[nodiscard]] bool removeStaleBackups();
  [[nodiscard]] bool flush();
  [[nodiscard]] bool exchange(const std::string& fresh, const std::string& path,
                              const std::string& backup, bool hadFile);
  bool fail(const char* what, const std::string& path, int error);

  const PolicyFiles _names;
  const Parts _parts;
  PolicyJournal _journal;
  STRING _problem;
};

enum class Reconciled {
  nothing,   // no change was under way
  undone,    // the former policy is in force
  repaired,  // the journal was damaged; what agent.ini names is in force
  failed     // it could not be put back; the journal stays
};

// Undoes the change that the journal tells of, if there is one.
[[nodiscard]] Reconciled reconcilePolicy(const PolicyChange::Parts& parts);

}  // namespace korvane
