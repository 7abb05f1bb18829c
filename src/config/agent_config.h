// The settings of the agent and its own lasting state, kept in "agent.ini" with a second copy in
// "fallback.ini". docs/ini-reference.md lists every key with its accessors.
//
// Lifetime: one object per run of the agent. getInstance() makes it and reads the files the
// first time; freeInstance() ends it, and a later getInstance() starts over. Pointers from
// before are dead then.
// Threads: any thread may call anything. Every call takes a lock for its duration; no call holds
// one while it waits for the lock file, writes a file or calls a subscriber.
// Writing: a setter that changes a stored value has written agent.ini when it returns; several of
// them in the scope of a ChangeGroup are one write when the outermost group of the thread ends. A
// change that another process made to the file in between is taken over, not overwritten. A write
// that fails is traced, its values stay in memory, and the next reload or write retries.
// Errors: false, with a trace line under the method's name; getServerEntry alone throws.
// Units: intervals are seconds; the log consolidation period is minutes; dates are ms since
// 1970 UTC.
//
//   AgentConfig* config = AgentConfig::getInstance();
//   if (config->pollingEnabled()) next = config->getPollingInterval();
//   config->setUniqueId(guid);  // agent.ini holds it now
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "config/change_all.h"
#include "config/hids_interface.h"
#include "config/log_type.h"
#include "util/export.h"
#include "util/property_list.h"
#include "util/string.h"

namespace korvane {

struct AgentSettings;
struct RefusedSettings;
struct Settings;

class KORVANE_EXPORT AgentConfig {
 public:
  // Never null. The thread that makes the object reads the files before it returns.
  static AgentConfig* getInstance();
  static void freeInstance();
  // The first load; getInstance() calls it. True when agent.ini or its fallback could be read, or
  // when there is neither.
  [[nodiscard]] static bool readConfigFile();

  // Makes the changes of one thread in its scope one write, done when the outermost group ends.
  class KORVANE_EXPORT ChangeGroup {
   public:
    explicit ChangeGroup(AgentConfig& config);
    ~ChangeGroup();
    ChangeGroup(const ChangeGroup&) = delete;
    ChangeGroup& operator=(const ChangeGroup&) = delete;

   private:
    AgentConfig& _config;
  };

  // Files
  // Reads agent.ini again when its date or size differs from the last time. False when the lock
  // file or the file is not available; the settings stay as they were then. `changed`: a value
  // differs now.
  [[nodiscard]] bool loadIniFile();
  [[nodiscard]] bool loadIniFile(bool& changed);
  // Writes all settings to `path`, or to agent.ini when it is empty. lockHeld: the caller has the
  // lock file already. force: write also when the file already holds exactly this.
  [[nodiscard]] bool updateIniFile(bool lockHeld, bool force, const STRING& path);
  // Sets one key and writes agent.ini; without section and key (null or empty) only writes it.
  [[nodiscard]] bool updateIniFile(const char* section, const char* key, const STRING& value);
  [[nodiscard]] bool updateIniFile();
  // Writes fallback.ini, then agent.ini.
  [[nodiscard]] bool UpdateAllIni();
  // Settings from the server: sets every pair, then writes agent.ini once; false when that
  // fails. What cannot be a value of its key is left out, named in `refused` and in event
  // 10526; the rest is in force.
  [[nodiscard]] bool newConfiguration(const PropertyList& properties);
  [[nodiscard]] bool newConfiguration(const PropertyList& properties, RefusedSettings& refused);
  // The whole configuration as the text of an ini file, checksum included.
  STRING exportConfigData() const;

  // Any key by its name; one that is not in the table belongs to [Other]. False for a name that
  // cannot stand in the file and for a value that is not of the key's type.
  [[nodiscard]] bool setValue(const STRING& key, const STRING& value);
  // Several known keys as one change, in force and written when it returns: all of them, or none.
  // refused: `refusedKey` is not known or its value not of its type. locked: another process has
  // held the lock file for a second. notWritten: the file cannot be replaced.
  using ChangeAll = korvane::ChangeAll;
  ChangeAll changeAll(const PropertyList& changes, STRING& refusedKey);
  STRING getValue(const STRING& key) const;  // empty when unknown
  bool hasValue(const STRING& key) const;
  PropertyList allValues() const;  // in the order of the table, then those of [Other]

  // Subscribers
  // The moments a subscriber can ask for. It is called on the thread that made the change, after
  // the change is in force and was written, without the store's lock; it gets the AgentConfig.
  enum SubscriberId {
    SETTINGS_RELOADED = 1,     // another program changed agent.ini
    SETTINGS_FROM_SERVER = 2,  // newConfiguration changed a value
    SETTINGS_CHANGED = 3,      // any value changed, by whatever way (after 1 or 2 when both apply)
  };
  void registerSubscriber(int id, std::function<void(void*)> callback);

  // [Agent]: identity and server
  STRING getInitialGroup() const;
  void setInitialGroup(const STRING& value);
  STRING getAgentConfigInitialGroup() const;
  void setAgentConfigInitialGroup(const STRING& value);
  STRING getConfigInitialGroup() const;
  void setConfigInitialGroup(const STRING& value);
  STRING getCharset() const;
  void setCharset(const STRING& value);
  bool isUnicode() const;  // the character set is "UTF-16LE"
  STRING getAgentName() const;
  void setAgentName(const STRING& value);
  STRING getOpstateInterval() const;
  void setOpstateInterval(const STRING& value);
  STRING getUniqueId() const;
  void setUniqueId(const STRING& value);
  // Forgets the identifier when it is still the one that a request was made with, so that the agent
  // registers again; one that was assigned meanwhile stays.
  bool clearUniqueId(const STRING& guidUsed);
  bool registered() const;  // the agent has an identifier
  STRING getURL() const;
  void setURL(const STRING& value);
  STRING getURLHost() const;
  STRING getURLPort() const;  // empty when the URL names none
  STRING getURLProtocol() const;
  void setURLHost(const STRING& host);
  void setURLPort(const STRING& port);
  void setURLProtocol(const STRING& protocol);
  STRING getSoftwareUpdateDirectory() const;
  void setSoftwareUpdateDirectory(const STRING& value);
  bool updateInProgress() const;  // a software update directory is recorded
  STRING getFeatures() const;
  void setFeatures(const STRING& value);

  // Server list
  STRING getServerList() const;
  void setServerList(const STRING& text);
  int32_t getServerListSize() const;
  STRING getServerEntry(int32_t index) const;  // from 1; std::out_of_range otherwise
  STRING getServerPrimary() const;
  STRING getServerCurrent() const;
  void setServerCurrent(const STRING& server);
  STRING getServerNext() const;
  void setServerNext(const STRING& server);  // stores the entry after the given one, wrapping round
  STRING getServerLast() const;              // "Unknown" until an exchange succeeded
  void setServerLast(const STRING& server);

  // [FIPS] [AutoRetrans]
  bool isFipsEnabled() const;
  void setFipsEnabled(bool enabled);
  bool autoRetransEnabled() const;
  void setAutoRetransEnabled(bool value);
  uint32_t getAutoRetransInterval() const;
  void setAutoRetransInterval(uint32_t seconds);
  bool getRetranslateNow() const;
  void setRetranslateNow(bool value);
  bool getRetranslateIDSNow() const;  // memory only
  void setRetranslateIDSNow(bool value);
  bool isRetranslationActive() const;  // memory only
  void setRetranslationActive(bool value);

  // Logs
  STRING getAgentLogFile() const;
  void setAgentLogFile(const STRING& value);
  bool logTraceMessages() const;
  void setLogTraceMessages(bool value);
  STRING getAgentLogFilePointer() const;
  void setAgentLogFilePointer(const STRING& value);
  bool isAgentLogRolloverPending() const;
  void setAgentLogRolloverPending(bool value);
  // True when the agent's own log goes to another file than the recorded one.
  bool agentLogFileChanged() const;
  // Records the file that the agent's own log goes to now, and that a roll-over is pending.
  void rolledAgentLogFile();
  STRING getDriverLogFile() const;
  void setDriverLogFile(const STRING& value);
  STRING getDriverProfileLogFile() const;
  void setDriverProfileLogFile(const STRING& value);
  STRING getDriverLogFilePointer() const;
  void setDriverLogFilePointer(const STRING& value);
  bool isDriverLogRolloverPending() const;
  void setDriverLogRolloverPending(bool value);
  STRING getHIDSLogFile() const;  // memory only
  void setHIDSLogFile(const STRING& path);
  STRING getHIDSRTLogFile() const;  // memory only
  void setHIDSRTLogFile(const STRING& path);
  // The names that were set since the last call, in their order; one that was set again and
  // again once. At most 1000.
  std::vector<STRING> takeHIDSRTLogFilesSeen();
  // The file that a log is written to now; empty for a type without one.
  STRING getCurrentLogFile(LogType type) const;
  // InstallRoot/IPS/<base name>filepointer; empty for the types 1 and 3.
  static STRING getLogPointerFileName(LogType type);
  // The display name of a type.
  static STRING getLogTypeByName(LogType type);
  int32_t getLogDiskUpperLimit() const;  // percent
  void setLogDiskUpperLimit(int32_t value);
  int32_t getLogDiskLowerLimit() const;  // percent
  void setLogDiskLowerLimit(int32_t value);
  int32_t getBulkTransferIdleInterval() const;
  void setBulkTransferIdleInterval(int32_t seconds);
  int32_t getBulkTransferBacklogInterval() const;
  void setBulkTransferBacklogInterval(int32_t seconds);
  int32_t getBulkTransferOpenFileLimit() const;
  void setBulkTransferOpenFileLimit(int32_t value);
  bool bulkTransferEnabled() const;
  void setBulkTransferEnabled(bool value);
  bool consolidateLogs() const;
  void setConsolidateLogs(bool value);
  uint32_t getLogConsolidatePeriod() const;  // minutes
  void setLogConsolidatePeriod(uint32_t minutes);
  bool deleteLogs() const;
  void setDeleteLogs(bool value);
  bool collectSHA256Hash() const;
  void setCollectSHA256Hash(bool value);
  int32_t getMaxMessagesToRead(LogType type) const;  // the same for every type
  void setMaxMessagesToRead(int32_t value);
  int32_t getMaxBatchSize(LogType type) const;  // the same for every type
  void setMaxBatchSize(int32_t value);
  STRING getLogPriority() const;
  void setLogPriority(const STRING& value);
  int32_t getLogRolloverCause() const;
  void setLogRolloverCause(int32_t value);
  STRING getLogRolloverValue() const;
  void setLogRolloverValue(const STRING& value);
  STRING getExternalLogs() const;
  void setExternalLogs(const STRING& value);

  // [Driver]: policy and prevention
  STRING getPlusPolicyFile() const;
  void setPlusPolicyFile(const STRING& value);
  STRING getPlusVersion() const;
  void setPlusVersion(const STRING& value);
  STRING getPlusID() const;
  void setPlusID(const STRING& value);
  STRING getPolicyID() const;
  STRING getPlusDBPath() const;
  void setPlusDBPath(const STRING& value);
  bool useBuiltInPolicy() const;
  void setUseBuiltInPolicy(bool value);
  // True when the request to use the built-in policy differs from what the driver was last told.
  bool useBuiltInPolicyChanged() const;
  void updatedDriverForBuiltIn();
  bool isIPSEnabled() const;
  void setIPSEnabled(bool value);
  bool isFIMEnabled() const;
  void setFIMEnabled(bool value);
  int32_t getIPSImportFileMaxLines() const;
  void setIPSImportFileMaxLines(int32_t value);
  int32_t getOverrideTimeout() const;
  void setOverrideTimeout(int32_t value);
  int getIPSServiceStatus() const;  // memory only; 0 at start
  void setIPSServiceStatus(int status);
  bool isIPSEnforced() const;  // memory only
  void setIPSEnforced(bool value);
  int64_t getPolicyEffectiveDate() const;  // memory only
  void setPolicyEffectiveDate(int64_t wallMs);

  // Reboot state
  bool isIPSRebootDone() const;
  bool isIPSRebootRequired() const;
  void setIPSRebootRequired(bool value);
  bool isRebootRequested() const;
  void setRebootRequested(bool value);
  STRING getRebootSource() const;
  void setRebootSource(const STRING& value);
  bool isFIMRebootDone() const;
  bool isFIMRebootRequired() const;
  void setFIMRebootRequired(bool value);
  bool isFIMRebootRequested() const;
  void setFIMRebootRequested(bool value);
  // Asks the registry whether no reboot of the driver is outstanding; an absent value means none
  // is.
  bool isSystemRebootDone() const;
  // Takes the registry's answer into the settings; a reboot that was outstanding and is not any
  // more ends the requests of the configuration tool too.
  void updateRebootRequiredFlag();

  // Policy state and error
  static constexpr int kBuiltInPolicyState = -100;  // the driver is on its built-in policy
  void setPolicyState(int code, const STRING& text);
  // A policy is in force: there is no state of the built-in policy any more, and none
  // instead of it.
  void leaveBuiltInState();
  int getPolicyStateCode() const;
  STRING getPolicyStateStr() const;
  bool hasPolicyStateChanged() const;      // a state was set since the mark was cleared
  bool hasRealPolicyStateChanged() const;  // and it differs from the one before
  void setPolicyStateChanged(bool changed);
  void setPolicyError(int code, const STRING& text);
  int getPolicyErrorCode() const;
  STRING getPolicyErrorStr() const;
  bool hasPolicyErrorChanged() const;  // differs from the one that stood when the mark was cleared
  void setPolicyErrorChanged(bool changed);

  // [IDS] [System]
  STRING getIDSPolicyInitialGroup() const;
  void setIDSPolicyInitialGroup(const STRING& value);
  STRING getIDSConfigInitialGroup() const;
  void setIDSConfigInitialGroup(const STRING& value);
  STRING getIDSPlusFileName() const;
  void setIDSPlusFileName(const STRING& value);
  int32_t getIDSSignalTimeout() const;
  void setIDSSignalTimeout(int32_t seconds);
  // The IDS component, or null; the composition root sets it and keeps it alive.
  static HidsInterface* getHIDSInterface();
  static void setHIDSInterface(HidsInterface* component);
  STRING getSSLCertFile() const;
  void setSSLCertFile(const STRING& value);

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

  // [Polling] [TCP] [Communication]
  bool pollingEnabled() const;
  void setPollingEnabled(bool value);
  uint32_t getPollingInterval() const;
  void setPollingInterval(uint32_t seconds);
  uint32_t getFailbackInterval() const;
  void setFailbackInterval(uint32_t seconds);
  bool tcpNotificationsEnabled() const;
  void setTCPNotificationsEnabled(bool value);
  int32_t getTCPNotificationPort() const;
  void setTCPNotificationPort(int32_t port);
  uint32_t getConnectionTimeout() const;
  void setConnectionTimeout(uint32_t seconds);

  // About the agent and this machine
  STRING getKorvaneVersion() const;
  STRING getHostname() const;
  STRING getIPAddress() const;  // the first one; looked up again after five minutes
  STRING getOS() const;
  // What the agent says about itself at registration, and its settings that the server manages.
  PropertyList getAttributes() const;
  PropertyList getConfiguration() const;

  // State of the run (memory only)
  bool isFirstUpdateDone() const;
  void setFirstUpdateDone();
  void setFirstUpdateDone(bool done);
  // Which program uses the store; the one numbered 4 must not have its settings written back by
  // others.
  static constexpr int RUNNING_AGENT = 1;
  static constexpr int RUNNING_CONFIG_TOOL = 4;
  int getWhoIsRunning() const;
  void setWhoIsRunning(int component);
  // Static, so that the host and the worker threads can ask without the store.
  static void setAgentShuttingdown(bool shuttingDown);
  static bool isAgentShuttingDown();
  // Whether the agent has come up in this process: false from startAgent until its start is logged.
  static void setAgentStarted(bool started);
  static bool isAgentStarted();

 private:
  struct Shared;
  friend struct std::default_delete<AgentConfig>;
  friend Settings settingsOf(AgentConfig& config);

  static Shared& shared();
  AgentConfig();
  ~AgentConfig();
  std::unique_ptr<AgentSettings> _settings;
};

}  // namespace korvane
