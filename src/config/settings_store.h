// The settings of one agent: their values, the lock over them, and how they meet agent.ini. The
// sections (server_settings.h and the others) give the values their names and types.
//
// Two locks: `fileLock` serialises this process's own use of the files, lock file included, and is
// taken first; `lock` guards the values and is never held while a file is touched.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/thread/locks.h"
#include "config/change_all.h"
#include "config/change_group.h"
#include "config/incoming_settings.h"
#include "config/ini_files.h"
#include "config/refused_settings.h"
#include "config/server_list.h"
#include "config/settings_table.h"
#include "config/value_map.h"
#include "util/thread_annotations.h"

namespace korvane {

class SettingsStore {
 public:
  struct Surroundings {
    platform::Files& files;
    platform::Clock& clock;
    platform::SharedLibraries& sharedLibraries;  // has the FIPS module
    std::string directory;  // of agent.ini and its companions; empty: there are none
    void* subject;          // what subscribers are given
  };
  // The moments that a subscriber can ask for, as AgentConfig::SubscriberId numbers them.
  enum Moment { reloaded = 1, fromServer = 2, anyChange = 3 };

  explicit SettingsStore(const Surroundings& of);
  SettingsStore(const SettingsStore&) = delete;
  SettingsStore& operator=(const SettingsStore&) = delete;

  // Values. The first three take the lock; change() is what the setters do.
  STRING text(Key key) const;
  int32_t number(Key key) const;
  uint32_t interval(Key key) const;
  bool flag(Key key) const { return number(key) != 0; }
  void change(Key key, const STRING& value);
  void change(Key key, bool value) { change(key, STRING::fromBool(value)); }
  void change(Key key, int64_t value) { change(key, STRING::fromInt(value)); }

  const ValueMap& mapOf(Key key) const REQUIRES(lock);
  // Sets a value without writing it; false when it is refused.
  [[nodiscard]] bool assign(const SettingRow& row, const STRING& value) REQUIRES(lock);
  [[nodiscard]] bool assignByName(const STRING& key, const STRING& value) REQUIRES(lock);
  // What judges settings from elsewhere now; without the lock.
  IncomingSettings incoming() const;
  // A configuration from the server, without its write and its event. `verdicts`: of each pair.
  void applyFromServer(const PropertyList& properties, std::span<const SettingVerdict> verdicts,
                       RefusedSettings& refused) REQUIRES(lock);
  // Why assignByName() refused what has no fault of its own.
  std::string refusalReason(const STRING& key, const STRING& value) const REQUIRES(lock);
  // Null for an unknown key.
  const STRING* find(const STRING& key) const REQUIRES(lock);
  STRING urlHost() const REQUIRES(lock);
  // What a changed value of this key entails.
  void follow(Key key) REQUIRES(lock);

  // Files. `tag` is the method under whose name failures are traced.
  // Null when it is not available, which event 10523 tells once until it can.
  [[nodiscard]] std::unique_ptr<platform::FileLock> acquireLockFile(std::string_view tag,
                                                                    uint32_t pauseMs = 1000);
  [[nodiscard]] bool load(std::string_view tag, bool& changed);
  // The first load is over: setters write from now on.
  void beginWriting();
  [[nodiscard]] bool save(std::string_view tag, bool force);
  [[nodiscard]] bool saveBoth(std::string_view tag);
  ChangeAll changeAll(const PropertyList& changes, STRING& refusedKey);
  [[nodiscard]] bool saveTo(std::string_view tag, const std::string& path);
  [[nodiscard]] bool saveHoldingLockFile(std::string_view tag, bool force);
  std::string exportText() const REQUIRES(lock);

  // The scope of a ChangeGroup. The end of a thread's outermost one writes, switches and notifies
  // what is outstanding.
  static void beginChanges();
  void endChanges() noexcept;

  const IniFiles files;
  Win32Mutex fileLock;
  mutable RecursiveMutex lock;

  ValueMap settings GUARDED_BY(lock){MapKind::settings};
  ValueMap communication GUARDED_BY(lock){MapKind::communication};
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

  // What the end of a group has to do.
  bool writeOutstanding GUARDED_BY(lock) = false;
  bool fipsOutstanding GUARDED_BY(lock) = false;
  unsigned momentsOutstanding GUARDED_BY(lock) = 0;  // a bit for each Moment
  std::vector<std::pair<int, std::function<void(void*)>>> subscribers GUARDED_BY(lock);

 private:
  void finishChanges() noexcept;
  void applyFips(bool wanted);
  void notifySubscribers();
  // Sets them in order; what stood before goes to `former`, the newest first. False at the
  // first refusal.
  [[nodiscard]] bool assignAll(const PropertyList& changes, PropertyList& former,
                               STRING& refusedKey) REQUIRES(lock);
  void putBack(const PropertyList& former) REQUIRES(lock);

  struct Snapshot {
    ValueMap settings;
    ValueMap communication;
    std::string text;
  };

  bool upToDate();
  bool dirty() const REQUIRES(lock);
  Snapshot snapshot() const;
  void markSaved(const Snapshot& written) REQUIRES(lock);
  bool mergeNVPData(std::string_view tag, const IniText& file, const std::string& path);
  void tellRefused(std::string_view tag, const PropertyList& refused, const std::string& path);
  void tellUnreadable(std::string_view tag, IniFault fault);
  // At the first load, with the lock file held.
  void removeUnfinishedOnce();
  [[nodiscard]] bool readFiles(std::string_view tag, bool& changed);
  [[nodiscard]] bool readFallback(std::string_view tag, IniFault agentIniFault, bool& changed);
  [[nodiscard]] bool mergeFiles(std::string_view tag, const IniText& text, IniFault fault,
                                bool first, bool& changed);
  int64_t now() const;
  void mergeExternalChange(std::string_view tag);
  [[nodiscard]] bool writeOne(std::string_view tag, const std::string& path,
                              FileMemory SettingsStore::*memory, const Snapshot& content,
                              bool force);

  platform::Clock& _clock;
  platform::Files& _systemFiles;
  platform::SharedLibraries& _sharedLibraries;
  void* const _subject;
};

}  // namespace korvane
