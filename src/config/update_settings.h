// What the agent fetches and when: polling and notifications, software and content updates, the data
// of applications. Threads, writing and errors: as AgentConfig has them.
#pragma once

#include <atomic>
#include <cstdint>

#include "util/string.h"

namespace korvane {

class SettingsStore;

class UpdateSettings {
 public:
  explicit UpdateSettings(SettingsStore& store) : _store(store) {}

  // Software update
  STRING getSoftwareUpdateDirectory() const;
  void setSoftwareUpdateDirectory(const STRING& value);
  bool updateInProgress() const;  // a software update directory is recorded

  // [ApplicationData] [GenericDiscoveryChecksums]
  STRING getAppDataConfigFile() const;
  void setAppDataConfigFile(const STRING& value);
  STRING getAppDataConfigV2File() const;
  void setAppDataConfigV2File(const STRING& value);
  bool isAppDataRequested() const;
  void setAppDataRequested(bool value);
  STRING getAppDataRequestID() const;
  void setAppDataRequestID(const STRING& value);
  int32_t getAppDataMaxPayload() const;
  void setAppDataMaxPayload(int32_t value);
  int32_t getAppDataSendInterval() const;
  void setAppDataSendInterval(int32_t seconds);
  int32_t getAppDataRetryInterval() const;
  void setAppDataRetryInterval(int32_t seconds);
  int32_t getAppDataMaxRetries() const;
  void setAppDataMaxRetries(int32_t value);
  // The request that is served next; empty without one.
  STRING getAppDataRequestNext() const;
  void setAppDataRequestNext(const STRING& value);
  uint32_t getAppDataScheduleInterval() const;  // seconds; 0: there is no schedule
  STRING getAppDataScheduleLast() const;        // milliseconds since 1970 UTC, decimal
  void setAppDataScheduleLast(const STRING& value);
  STRING getApplicationsChecksum() const;
  void setApplicationsChecksum(const STRING& value);
  STRING getFilesChecksum() const;
  void setFilesChecksum(const STRING& value);
  bool isLocalAppDiscoveryOn() const;  // memory only, as the next one
  void setLocalAppDiscoveryOn(bool value);
  bool isCloudAppDiscoveryOn() const;
  void setCloudAppDiscoveryOn(bool value);

  // [Freshline]
  bool getUpdateQELNow() const;
  void setUpdateQELNow(bool value);
  bool getUpdateFRevoNow() const;
  void setUpdateFRevoNow(bool value);
  bool getUpdateFSettingsNow() const;
  void setUpdateFSettingsNow(bool value);
  bool getUpdateFVTNow() const;
  void setUpdateFVTNow(bool value);
  STRING getQelVtFlpkgPath() const;
  void setQelVtFlpkgPath(const STRING& value);
  STRING getFerrolynRevoPath() const;
  void setFerrolynRevoPath(const STRING& value);
  STRING getFerrolynSettingsPath() const;
  void setFerrolynSettingsPath(const STRING& value);
  STRING getFerrolynVtPath() const;
  void setFerrolynVtPath(const STRING& value);
  STRING getQelFL() const;
  void setQelFL(const STRING& value);
  STRING getFerrolynRevoFL() const;
  void setFerrolynRevoFL(const STRING& value);
  STRING getFerrolynSettingsFL() const;
  void setFerrolynSettingsFL(const STRING& value);
  STRING getFerrolynVtFL() const;
  void setFerrolynVtFL(const STRING& value);

  // [Polling] [TCP]
  bool pollingEnabled() const;
  void setPollingEnabled(bool value);
  uint32_t getPollingInterval() const;
  void setPollingInterval(uint32_t seconds);
  bool tcpNotificationsEnabled() const;
  void setTCPNotificationsEnabled(bool value);
  int32_t getTCPNotificationPort() const;
  void setTCPNotificationPort(int32_t port);

  // State of the run (memory only)
  bool isFirstUpdateDone() const;
  void setFirstUpdateDone();
  void setFirstUpdateDone(bool done);

 private:
  SettingsStore& _store;

  // Not in the file.
  std::atomic<bool> _firstUpdateDone{false};
  std::atomic<bool> _localDiscoveryOn{false};
  std::atomic<bool> _cloudDiscoveryOn{false};
};

}  // namespace korvane
