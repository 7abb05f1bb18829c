// What is behind AgentConfig: the stores, their lock, the files and the state that is not
// in the files.
//
// Two locks: `fileLock` serialises this process's own use of the files, lock file included, and is
// taken first; `lock` guards the values and is never held while a file is touched.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/thread/locks.h"
#include "config/agent_config.h"
#include "config/ini_files.h"
#include "config/refused_settings.h"
#include "config/server_list.h"
#include "config/setting_store.h"
#include "config/settings_table.h"
#include "util/thread_annotations.h"

namespace korvane {

struct AgentConfigState {
  AgentConfigState(AgentConfig& ownerConfig, std::string directory);

  // Values. The first three take the lock; change() is what every setter does.
  STRING text(Key key) const;
  int32_t number(Key key) const;
  uint32_t interval(Key key) const;
  bool flag(Key key) const { return number(key) != 0; }
  void change(Key key, const STRING& value);
  void change(Key key, bool value) { change(key, STRING::fromBool(value)); }
  void change(Key key, int64_t value) { change(key, STRING::fromInt(value)); }

  const SettingStore& storeOfKey(Key key) const REQUIRES(lock);
  // Sets a value without writing it; false when it is refused.
  [[nodiscard]] bool assign(const SettingRow& row, const STRING& value) REQUIRES(lock);
  [[nodiscard]] bool assignByName(const STRING& key, const STRING& value) REQUIRES(lock);
  // newConfiguration() without its write and its event.
  void takeFromServer(const PropertyList& properties, std::vector<RefusedSetting>& refused)
      REQUIRES(lock);
  // Why assignByName() refused what has no fault of its own.
  std::string refusalReason(const STRING& key, const STRING& value) const REQUIRES(lock);
  // Null for an unknown key.
  const STRING* find(const STRING& key) const REQUIRES(lock);
  STRING urlHost() const REQUIRES(lock);
  // What a changed value of this key entails.
  void follow(Key key) REQUIRES(lock);

  // Files. `tag` is the method under whose name failures are traced.
  // Null when it is not available, which event 10523 tells once until it can.
  [[nodiscard]] std::unique_ptr<platform::FileLock> takeLockFile(std::string_view tag,
                                                                 uint32_t pauseMs = 1000);
  [[nodiscard]] bool load(std::string_view tag, bool& changed);
  // The first load is over: setters write from now on.
  void beginWriting();
  [[nodiscard]] bool save(std::string_view tag, bool force);
  [[nodiscard]] bool saveBoth(std::string_view tag);
  AgentConfig::ChangeAll changeAll(const PropertyList& changes, STRING& refusedKey);
  [[nodiscard]] bool saveTo(std::string_view tag, const std::string& path);
  [[nodiscard]] bool saveHoldingLockFile(std::string_view tag, bool force);
  std::string exportText() const REQUIRES(lock);

  // Ends the outermost group of a thread: writes, switches, notifies what is outstanding.
  void finishChanges() noexcept;
  void notifySubscribers();

  AgentConfig& owner;
  const IniFiles files;
  Win32Mutex fileLock;
  mutable RecursiveMutex lock;

  SettingStore settings GUARDED_BY(lock){StoreKind::settings};
  SettingStore communication GUARDED_BY(lock){StoreKind::communication};
  ServerList servers GUARDED_BY(lock);
  FileMemory agentIni GUARDED_BY(lock);
  FileMemory fallbackIni GUARDED_BY(lock);
  bool everRead GUARDED_BY(lock) = false;  // the files were looked at
  bool toldUnreadable GUARDED_BY(lock) = false;
  bool toldNoLockFile GUARDED_BY(lock) = false;
  bool loaded GUARDED_BY(lock) = false;  // setters write through
  bool lastLoadGood GUARDED_BY(lock) = false;
  bool lastWriteFailed GUARDED_BY(lock) = false;  // of newConfiguration, to trace it once
  int64_t nextRetryMs GUARDED_BY(lock) = 0;       // monotonic, after a write that failed

  // What finishChanges() has to do.
  bool writeOutstanding GUARDED_BY(lock) = false;
  bool fipsOutstanding GUARDED_BY(lock) = false;
  unsigned momentsOutstanding GUARDED_BY(lock) = 0;  // a bit for each SubscriberId
  std::vector<std::pair<int, std::function<void(void*)>>> subscribers GUARDED_BY(lock);

  // Not in the file.
  bool acknowledgedBuiltIn GUARDED_BY(lock) = false;
  int policyState GUARDED_BY(lock) = 0;
  STRING policyStateText GUARDED_BY(lock);
  bool policyStateChanged GUARDED_BY(lock) = false;
  bool realPolicyStateChanged GUARDED_BY(lock) = false;
  STRING policyErrorText GUARDED_BY(lock);  // as it was set, with the blanks at its ends
  int reportedError GUARDED_BY(lock) = 0;
  STRING reportedErrorText GUARDED_BY(lock);
  bool errorChangeForced GUARDED_BY(lock) = false;
  STRING hidsLogFile GUARDED_BY(lock);
  STRING hidsRtLogFile GUARDED_BY(lock);
  std::vector<STRING> hidsRtLogFilesSeen GUARDED_BY(lock);
  bool retranslateIdsNow GUARDED_BY(lock) = false;
  bool retranslationActive GUARDED_BY(lock) = false;
  int ipsServiceStatus GUARDED_BY(lock) = 0;
  bool ipsEnforced GUARDED_BY(lock) = false;
  int64_t policyEffectiveDate GUARDED_BY(lock) = 0;
  bool firstUpdateDone GUARDED_BY(lock) = false;
  int whoIsRunning GUARDED_BY(lock) = AgentConfig::RUNNING_AGENT;
  bool localDiscoveryOn GUARDED_BY(lock) = false;
  bool cloudDiscoveryOn GUARDED_BY(lock) = false;

  // Looked up once, the address again after a while.
  mutable STRING version GUARDED_BY(lock);
  mutable STRING hostName GUARDED_BY(lock);
  mutable STRING osDescription GUARDED_BY(lock);
  mutable STRING ipAddress GUARDED_BY(lock);
  mutable int64_t ipAddressUntilMs GUARDED_BY(lock) = 0;

 private:
  // Sets them in order; what stood before goes to `former`, the newest first. False at the
  // first refusal.
  [[nodiscard]] bool assignAll(const PropertyList& changes, PropertyList& former,
                               STRING& refusedKey) REQUIRES(lock);
  void putBack(const PropertyList& former) REQUIRES(lock);

  struct Snapshot {
    SettingStore settings;
    SettingStore communication;
    std::string text;
  };

  bool upToDate();
  bool dirty() const REQUIRES(lock);
  Snapshot snapshot() const;
  void markSaved(const Snapshot& written) REQUIRES(lock);
  bool mergeNVPData(std::string_view tag, const IniText& file, const std::string& path);
  void tellRefused(std::string_view tag, const PropertyList& refused, const std::string& path);
  void tellUnreadable(std::string_view tag, IniFault fault);
  [[nodiscard]] bool readFiles(std::string_view tag, bool& changed);
  [[nodiscard]] bool readFallback(std::string_view tag, IniFault agentIniFault, bool& changed);
  [[nodiscard]] bool takeFiles(std::string_view tag, const IniText& text, IniFault fault,
                               bool first, bool& changed);
  void takeExternalChange(std::string_view tag);
  [[nodiscard]] bool writeOne(std::string_view tag, const std::string& path,
                              FileMemory AgentConfigState::*memory, const Snapshot& content,
                              bool force);
};

}  // namespace korvane
