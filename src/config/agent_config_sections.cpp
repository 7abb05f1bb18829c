// What AgentConfig hands to the sections of its store, one line each, in the order of its header.
#include <utility>

#include "config/agent_config.h"
#include "config/agent_settings.h"

namespace korvane {

// clang-format off

// Files
bool AgentConfig::loadIniFile() { return _settings->file.loadIniFile(); }
bool AgentConfig::loadIniFile(bool& changed) { return _settings->file.loadIniFile(changed); }
bool AgentConfig::updateIniFile(bool lockHeld, bool force, const STRING& path) { return _settings->file.updateIniFile(lockHeld, force, path); }
bool AgentConfig::updateIniFile(const char* section, const char* key, const STRING& value) { return _settings->file.updateIniFile(section, key, value); }
bool AgentConfig::updateIniFile() { return _settings->file.updateIniFile(); }
bool AgentConfig::UpdateAllIni() { return _settings->file.UpdateAllIni(); }
bool AgentConfig::newConfiguration(const PropertyList& properties) { return _settings->file.newConfiguration(properties); }
bool AgentConfig::newConfiguration(const PropertyList& properties, RefusedSettings& refused) { return _settings->file.newConfiguration(properties, refused); }
STRING AgentConfig::exportConfigData() const { return _settings->file.exportConfigData(); }
bool AgentConfig::setValue(const STRING& key, const STRING& value) { return _settings->file.setValue(key, value); }
AgentConfig::ChangeAll AgentConfig::changeAll(const PropertyList& changes, STRING& refusedKey) { return _settings->file.changeAll(changes, refusedKey); }
STRING AgentConfig::getValue(const STRING& key) const { return _settings->file.getValue(key); }
bool AgentConfig::hasValue(const STRING& key) const { return _settings->file.hasValue(key); }
PropertyList AgentConfig::allValues() const { return _settings->file.allValues(); }

// Subscribers
void AgentConfig::registerSubscriber(int id, std::function<void(void*)> callback) { _settings->file.registerSubscriber(id, std::move(callback)); }

// [Agent]: identity and server
STRING AgentConfig::getInitialGroup() const { return _settings->server.getInitialGroup(); }
void AgentConfig::setInitialGroup(const STRING& value) { _settings->server.setInitialGroup(value); }
STRING AgentConfig::getAgentConfigInitialGroup() const { return _settings->server.getAgentConfigInitialGroup(); }
void AgentConfig::setAgentConfigInitialGroup(const STRING& value) { _settings->server.setAgentConfigInitialGroup(value); }
STRING AgentConfig::getConfigInitialGroup() const { return _settings->server.getConfigInitialGroup(); }
void AgentConfig::setConfigInitialGroup(const STRING& value) { _settings->server.setConfigInitialGroup(value); }
STRING AgentConfig::getCharset() const { return _settings->server.getCharset(); }
void AgentConfig::setCharset(const STRING& value) { _settings->server.setCharset(value); }
bool AgentConfig::isUnicode() const { return _settings->server.isUnicode(); }
STRING AgentConfig::getAgentName() const { return _settings->server.getAgentName(); }
void AgentConfig::setAgentName(const STRING& value) { _settings->server.setAgentName(value); }
STRING AgentConfig::getOpstateInterval() const { return _settings->server.getOpstateInterval(); }
void AgentConfig::setOpstateInterval(const STRING& value) { _settings->server.setOpstateInterval(value); }
STRING AgentConfig::getUniqueId() const { return _settings->server.getUniqueId(); }
void AgentConfig::setUniqueId(const STRING& value) { _settings->server.setUniqueId(value); }
bool AgentConfig::clearUniqueId(const STRING& guidUsed) { return _settings->server.clearUniqueId(guidUsed); }
bool AgentConfig::registered() const { return _settings->server.registered(); }
STRING AgentConfig::getURL() const { return _settings->server.getURL(); }
void AgentConfig::setURL(const STRING& value) { _settings->server.setURL(value); }
STRING AgentConfig::getURLHost() const { return _settings->server.getURLHost(); }
STRING AgentConfig::getURLPort() const { return _settings->server.getURLPort(); }
STRING AgentConfig::getURLProtocol() const { return _settings->server.getURLProtocol(); }
void AgentConfig::setURLHost(const STRING& host) { _settings->server.setURLHost(host); }
void AgentConfig::setURLPort(const STRING& port) { _settings->server.setURLPort(port); }
void AgentConfig::setURLProtocol(const STRING& protocol) { _settings->server.setURLProtocol(protocol); }
STRING AgentConfig::getSoftwareUpdateDirectory() const { return _settings->updates.getSoftwareUpdateDirectory(); }
void AgentConfig::setSoftwareUpdateDirectory(const STRING& value) { _settings->updates.setSoftwareUpdateDirectory(value); }
bool AgentConfig::updateInProgress() const { return _settings->updates.updateInProgress(); }
STRING AgentConfig::getFeatures() const { return _settings->server.getFeatures(); }
void AgentConfig::setFeatures(const STRING& value) { _settings->server.setFeatures(value); }

// Server list
STRING AgentConfig::getServerList() const { return _settings->server.getServerList(); }
void AgentConfig::setServerList(const STRING& text) { _settings->server.setServerList(text); }
int32_t AgentConfig::getServerListSize() const { return _settings->server.getServerListSize(); }
STRING AgentConfig::getServerEntry(int32_t index) const { return _settings->server.getServerEntry(index); }
STRING AgentConfig::getServerPrimary() const { return _settings->server.getServerPrimary(); }
STRING AgentConfig::getServerCurrent() const { return _settings->server.getServerCurrent(); }
void AgentConfig::setServerCurrent(const STRING& server) { _settings->server.setServerCurrent(server); }
STRING AgentConfig::getServerNext() const { return _settings->server.getServerNext(); }
void AgentConfig::setServerNext(const STRING& server) { _settings->server.setServerNext(server); }
STRING AgentConfig::getServerLast() const { return _settings->server.getServerLast(); }
void AgentConfig::setServerLast(const STRING& server) { _settings->server.setServerLast(server); }

// [FIPS] [AutoRetrans]
bool AgentConfig::isFipsEnabled() const { return _settings->server.isFipsEnabled(); }
void AgentConfig::setFipsEnabled(bool enabled) { _settings->server.setFipsEnabled(enabled); }
bool AgentConfig::autoRetransEnabled() const { return _settings->policy.autoRetransEnabled(); }
void AgentConfig::setAutoRetransEnabled(bool value) { _settings->policy.setAutoRetransEnabled(value); }
uint32_t AgentConfig::getAutoRetransInterval() const { return _settings->policy.getAutoRetransInterval(); }
void AgentConfig::setAutoRetransInterval(uint32_t seconds) { _settings->policy.setAutoRetransInterval(seconds); }
bool AgentConfig::getRetranslateNow() const { return _settings->policy.getRetranslateNow(); }
void AgentConfig::setRetranslateNow(bool value) { _settings->policy.setRetranslateNow(value); }
bool AgentConfig::getRetranslateIDSNow() const { return _settings->policy.getRetranslateIDSNow(); }
void AgentConfig::setRetranslateIDSNow(bool value) { _settings->policy.setRetranslateIDSNow(value); }
bool AgentConfig::isRetranslationActive() const { return _settings->policy.isRetranslationActive(); }
void AgentConfig::setRetranslationActive(bool value) { _settings->policy.setRetranslationActive(value); }

// Logs
STRING AgentConfig::getAgentLogFile() const { return _settings->logs.getAgentLogFile(); }
void AgentConfig::setAgentLogFile(const STRING& value) { _settings->logs.setAgentLogFile(value); }
bool AgentConfig::logTraceMessages() const { return _settings->logs.logTraceMessages(); }
void AgentConfig::setLogTraceMessages(bool value) { _settings->logs.setLogTraceMessages(value); }
STRING AgentConfig::getAgentLogFilePointer() const { return _settings->logs.getAgentLogFilePointer(); }
void AgentConfig::setAgentLogFilePointer(const STRING& value) { _settings->logs.setAgentLogFilePointer(value); }
bool AgentConfig::isAgentLogRolloverPending() const { return _settings->logs.isAgentLogRolloverPending(); }
void AgentConfig::setAgentLogRolloverPending(bool value) { _settings->logs.setAgentLogRolloverPending(value); }
bool AgentConfig::agentLogFileChanged() const { return _settings->logs.agentLogFileChanged(); }
void AgentConfig::rolledAgentLogFile() { _settings->logs.rolledAgentLogFile(); }
STRING AgentConfig::getDriverLogFile() const { return _settings->logs.getDriverLogFile(); }
void AgentConfig::setDriverLogFile(const STRING& value) { _settings->logs.setDriverLogFile(value); }
STRING AgentConfig::getDriverProfileLogFile() const { return _settings->logs.getDriverProfileLogFile(); }
void AgentConfig::setDriverProfileLogFile(const STRING& value) { _settings->logs.setDriverProfileLogFile(value); }
STRING AgentConfig::getDriverLogFilePointer() const { return _settings->logs.getDriverLogFilePointer(); }
void AgentConfig::setDriverLogFilePointer(const STRING& value) { _settings->logs.setDriverLogFilePointer(value); }
bool AgentConfig::isDriverLogRolloverPending() const { return _settings->logs.isDriverLogRolloverPending(); }
void AgentConfig::setDriverLogRolloverPending(bool value) { _settings->logs.setDriverLogRolloverPending(value); }
STRING AgentConfig::getHIDSLogFile() const { return _settings->logs.getHIDSLogFile(); }
void AgentConfig::setHIDSLogFile(const STRING& path) { _settings->logs.setHIDSLogFile(path); }
STRING AgentConfig::getHIDSRTLogFile() const { return _settings->logs.getHIDSRTLogFile(); }
void AgentConfig::setHIDSRTLogFile(const STRING& path) { _settings->logs.setHIDSRTLogFile(path); }
std::vector<STRING> AgentConfig::takeHIDSRTLogFilesSeen() { return _settings->logs.takeHIDSRTLogFilesSeen(); }
STRING AgentConfig::getCurrentLogFile(LogType type) const { return _settings->logs.getCurrentLogFile(type); }
STRING AgentConfig::getLogPointerFileName(LogType type) { return LogSettings::getLogPointerFileName(type); }
STRING AgentConfig::getLogTypeByName(LogType type) { return LogSettings::getLogTypeByName(type); }
int32_t AgentConfig::getLogDiskUpperLimit() const { return _settings->logs.getLogDiskUpperLimit(); }
void AgentConfig::setLogDiskUpperLimit(int32_t value) { _settings->logs.setLogDiskUpperLimit(value); }
int32_t AgentConfig::getLogDiskLowerLimit() const { return _settings->logs.getLogDiskLowerLimit(); }
void AgentConfig::setLogDiskLowerLimit(int32_t value) { _settings->logs.setLogDiskLowerLimit(value); }
int32_t AgentConfig::getBulkTransferIdleInterval() const { return _settings->logs.getBulkTransferIdleInterval(); }
void AgentConfig::setBulkTransferIdleInterval(int32_t seconds) { _settings->logs.setBulkTransferIdleInterval(seconds); }
int32_t AgentConfig::getBulkTransferBacklogInterval() const { return _settings->logs.getBulkTransferBacklogInterval(); }
void AgentConfig::setBulkTransferBacklogInterval(int32_t seconds) { _settings->logs.setBulkTransferBacklogInterval(seconds); }
int32_t AgentConfig::getBulkTransferOpenFileLimit() const { return _settings->logs.getBulkTransferOpenFileLimit(); }
void AgentConfig::setBulkTransferOpenFileLimit(int32_t value) { _settings->logs.setBulkTransferOpenFileLimit(value); }
bool AgentConfig::bulkTransferEnabled() const { return _settings->logs.bulkTransferEnabled(); }
void AgentConfig::setBulkTransferEnabled(bool value) { _settings->logs.setBulkTransferEnabled(value); }
bool AgentConfig::consolidateLogs() const { return _settings->logs.consolidateLogs(); }
void AgentConfig::setConsolidateLogs(bool value) { _settings->logs.setConsolidateLogs(value); }
uint32_t AgentConfig::getLogConsolidatePeriod() const { return _settings->logs.getLogConsolidatePeriod(); }
void AgentConfig::setLogConsolidatePeriod(uint32_t minutes) { _settings->logs.setLogConsolidatePeriod(minutes); }
bool AgentConfig::deleteLogs() const { return _settings->logs.deleteLogs(); }
void AgentConfig::setDeleteLogs(bool value) { _settings->logs.setDeleteLogs(value); }
bool AgentConfig::collectSHA256Hash() const { return _settings->logs.collectSHA256Hash(); }
void AgentConfig::setCollectSHA256Hash(bool value) { _settings->logs.setCollectSHA256Hash(value); }
int32_t AgentConfig::getMaxMessagesToRead(LogType type) const { return _settings->logs.getMaxMessagesToRead(type); }
void AgentConfig::setMaxMessagesToRead(int32_t value) { _settings->logs.setMaxMessagesToRead(value); }
int32_t AgentConfig::getMaxBatchSize(LogType type) const { return _settings->logs.getMaxBatchSize(type); }
void AgentConfig::setMaxBatchSize(int32_t value) { _settings->logs.setMaxBatchSize(value); }
STRING AgentConfig::getLogPriority() const { return _settings->logs.getLogPriority(); }
void AgentConfig::setLogPriority(const STRING& value) { _settings->logs.setLogPriority(value); }
int32_t AgentConfig::getLogRolloverCause() const { return _settings->logs.getLogRolloverCause(); }
void AgentConfig::setLogRolloverCause(int32_t value) { _settings->logs.setLogRolloverCause(value); }
STRING AgentConfig::getLogRolloverValue() const { return _settings->logs.getLogRolloverValue(); }
void AgentConfig::setLogRolloverValue(const STRING& value) { _settings->logs.setLogRolloverValue(value); }
STRING AgentConfig::getExternalLogs() const { return _settings->logs.getExternalLogs(); }
void AgentConfig::setExternalLogs(const STRING& value) { _settings->logs.setExternalLogs(value); }

// [Driver]: policy and prevention
STRING AgentConfig::getPlusPolicyFile() const { return _settings->policy.getPlusPolicyFile(); }
void AgentConfig::setPlusPolicyFile(const STRING& value) { _settings->policy.setPlusPolicyFile(value); }
STRING AgentConfig::getPlusVersion() const { return _settings->policy.getPlusVersion(); }
void AgentConfig::setPlusVersion(const STRING& value) { _settings->policy.setPlusVersion(value); }
STRING AgentConfig::getPlusID() const { return _settings->policy.getPlusID(); }
void AgentConfig::setPlusID(const STRING& value) { _settings->policy.setPlusID(value); }
STRING AgentConfig::getPolicyID() const { return _settings->policy.getPolicyID(); }
STRING AgentConfig::getPlusDBPath() const { return _settings->policy.getPlusDBPath(); }
void AgentConfig::setPlusDBPath(const STRING& value) { _settings->policy.setPlusDBPath(value); }
bool AgentConfig::useBuiltInPolicy() const { return _settings->policy.useBuiltInPolicy(); }
void AgentConfig::setUseBuiltInPolicy(bool value) { _settings->policy.setUseBuiltInPolicy(value); }
bool AgentConfig::useBuiltInPolicyChanged() const { return _settings->policy.useBuiltInPolicyChanged(); }
void AgentConfig::updatedDriverForBuiltIn() { _settings->policy.updatedDriverForBuiltIn(); }
bool AgentConfig::isIPSEnabled() const { return _settings->policy.isIPSEnabled(); }
void AgentConfig::setIPSEnabled(bool value) { _settings->policy.setIPSEnabled(value); }
bool AgentConfig::isFIMEnabled() const { return _settings->policy.isFIMEnabled(); }
void AgentConfig::setFIMEnabled(bool value) { _settings->policy.setFIMEnabled(value); }
int32_t AgentConfig::getIPSImportFileMaxLines() const { return _settings->policy.getIPSImportFileMaxLines(); }
void AgentConfig::setIPSImportFileMaxLines(int32_t value) { _settings->policy.setIPSImportFileMaxLines(value); }
int32_t AgentConfig::getOverrideTimeout() const { return _settings->policy.getOverrideTimeout(); }
void AgentConfig::setOverrideTimeout(int32_t value) { _settings->policy.setOverrideTimeout(value); }
int AgentConfig::getIPSServiceStatus() const { return _settings->policy.getIPSServiceStatus(); }
void AgentConfig::setIPSServiceStatus(int status) { _settings->policy.setIPSServiceStatus(status); }
bool AgentConfig::isIPSEnforced() const { return _settings->policy.isIPSEnforced(); }
void AgentConfig::setIPSEnforced(bool value) { _settings->policy.setIPSEnforced(value); }
int64_t AgentConfig::getPolicyEffectiveDate() const { return _settings->policy.getPolicyEffectiveDate(); }
void AgentConfig::setPolicyEffectiveDate(int64_t wallMs) { _settings->policy.setPolicyEffectiveDate(wallMs); }

// Reboot state
bool AgentConfig::isIPSRebootDone() const { return _settings->policy.isIPSRebootDone(); }
bool AgentConfig::isIPSRebootRequired() const { return _settings->policy.isIPSRebootRequired(); }
void AgentConfig::setIPSRebootRequired(bool value) { _settings->policy.setIPSRebootRequired(value); }
bool AgentConfig::isRebootRequested() const { return _settings->policy.isRebootRequested(); }
void AgentConfig::setRebootRequested(bool value) { _settings->policy.setRebootRequested(value); }
STRING AgentConfig::getRebootSource() const { return _settings->policy.getRebootSource(); }
void AgentConfig::setRebootSource(const STRING& value) { _settings->policy.setRebootSource(value); }
bool AgentConfig::isFIMRebootDone() const { return _settings->policy.isFIMRebootDone(); }
bool AgentConfig::isFIMRebootRequired() const { return _settings->policy.isFIMRebootRequired(); }
void AgentConfig::setFIMRebootRequired(bool value) { _settings->policy.setFIMRebootRequired(value); }
bool AgentConfig::isFIMRebootRequested() const { return _settings->policy.isFIMRebootRequested(); }
void AgentConfig::setFIMRebootRequested(bool value) { _settings->policy.setFIMRebootRequested(value); }
bool AgentConfig::isSystemRebootDone() const { return _settings->policy.isSystemRebootDone(); }
void AgentConfig::updateRebootRequiredFlag() { _settings->policy.updateRebootRequiredFlag(); }

// Policy state and error
void AgentConfig::setPolicyState(int code, const STRING& text) { _settings->policy.setPolicyState(code, text); }
void AgentConfig::leaveBuiltInState() { _settings->policy.leaveBuiltInState(); }
int AgentConfig::getPolicyStateCode() const { return _settings->policy.getPolicyStateCode(); }
STRING AgentConfig::getPolicyStateStr() const { return _settings->policy.getPolicyStateStr(); }
bool AgentConfig::hasPolicyStateChanged() const { return _settings->policy.hasPolicyStateChanged(); }
bool AgentConfig::hasRealPolicyStateChanged() const { return _settings->policy.hasRealPolicyStateChanged(); }
void AgentConfig::setPolicyStateChanged(bool changed) { _settings->policy.setPolicyStateChanged(changed); }
void AgentConfig::setPolicyError(int code, const STRING& text) { _settings->policy.setPolicyError(code, text); }
int AgentConfig::getPolicyErrorCode() const { return _settings->policy.getPolicyErrorCode(); }
STRING AgentConfig::getPolicyErrorStr() const { return _settings->policy.getPolicyErrorStr(); }
bool AgentConfig::hasPolicyErrorChanged() const { return _settings->policy.hasPolicyErrorChanged(); }
void AgentConfig::setPolicyErrorChanged(bool changed) { _settings->policy.setPolicyErrorChanged(changed); }

// [IDS] [System]
STRING AgentConfig::getIDSPolicyInitialGroup() const { return _settings->policy.getIDSPolicyInitialGroup(); }
void AgentConfig::setIDSPolicyInitialGroup(const STRING& value) { _settings->policy.setIDSPolicyInitialGroup(value); }
STRING AgentConfig::getIDSConfigInitialGroup() const { return _settings->policy.getIDSConfigInitialGroup(); }
void AgentConfig::setIDSConfigInitialGroup(const STRING& value) { _settings->policy.setIDSConfigInitialGroup(value); }
STRING AgentConfig::getIDSPlusFileName() const { return _settings->policy.getIDSPlusFileName(); }
void AgentConfig::setIDSPlusFileName(const STRING& value) { _settings->policy.setIDSPlusFileName(value); }
int32_t AgentConfig::getIDSSignalTimeout() const { return _settings->policy.getIDSSignalTimeout(); }
void AgentConfig::setIDSSignalTimeout(int32_t seconds) { _settings->policy.setIDSSignalTimeout(seconds); }
STRING AgentConfig::getSSLCertFile() const { return _settings->server.getSSLCertFile(); }
void AgentConfig::setSSLCertFile(const STRING& value) { _settings->server.setSSLCertFile(value); }

// [ApplicationData] [GenericDiscoveryChecksums]
STRING AgentConfig::getAppDataConfigFile() const { return _settings->updates.getAppDataConfigFile(); }
void AgentConfig::setAppDataConfigFile(const STRING& value) { _settings->updates.setAppDataConfigFile(value); }
STRING AgentConfig::getAppDataConfigV2File() const { return _settings->updates.getAppDataConfigV2File(); }
void AgentConfig::setAppDataConfigV2File(const STRING& value) { _settings->updates.setAppDataConfigV2File(value); }
bool AgentConfig::isAppDataRequested() const { return _settings->updates.isAppDataRequested(); }
void AgentConfig::setAppDataRequested(bool value) { _settings->updates.setAppDataRequested(value); }
STRING AgentConfig::getAppDataRequestID() const { return _settings->updates.getAppDataRequestID(); }
void AgentConfig::setAppDataRequestID(const STRING& value) { _settings->updates.setAppDataRequestID(value); }
int32_t AgentConfig::getAppDataMaxPayload() const { return _settings->updates.getAppDataMaxPayload(); }
void AgentConfig::setAppDataMaxPayload(int32_t value) { _settings->updates.setAppDataMaxPayload(value); }
int32_t AgentConfig::getAppDataSendInterval() const { return _settings->updates.getAppDataSendInterval(); }
void AgentConfig::setAppDataSendInterval(int32_t seconds) { _settings->updates.setAppDataSendInterval(seconds); }
int32_t AgentConfig::getAppDataRetryInterval() const { return _settings->updates.getAppDataRetryInterval(); }
void AgentConfig::setAppDataRetryInterval(int32_t seconds) { _settings->updates.setAppDataRetryInterval(seconds); }
int32_t AgentConfig::getAppDataMaxRetries() const { return _settings->updates.getAppDataMaxRetries(); }
void AgentConfig::setAppDataMaxRetries(int32_t value) { _settings->updates.setAppDataMaxRetries(value); }
STRING AgentConfig::getApplicationsChecksum() const { return _settings->updates.getApplicationsChecksum(); }
void AgentConfig::setApplicationsChecksum(const STRING& value) { _settings->updates.setApplicationsChecksum(value); }
STRING AgentConfig::getFilesChecksum() const { return _settings->updates.getFilesChecksum(); }
void AgentConfig::setFilesChecksum(const STRING& value) { _settings->updates.setFilesChecksum(value); }
bool AgentConfig::isLocalAppDiscoveryOn() const { return _settings->updates.isLocalAppDiscoveryOn(); }
void AgentConfig::setLocalAppDiscoveryOn(bool value) { _settings->updates.setLocalAppDiscoveryOn(value); }
bool AgentConfig::isCloudAppDiscoveryOn() const { return _settings->updates.isCloudAppDiscoveryOn(); }
void AgentConfig::setCloudAppDiscoveryOn(bool value) { _settings->updates.setCloudAppDiscoveryOn(value); }

// [Freshline]
bool AgentConfig::getUpdateQELNow() const { return _settings->updates.getUpdateQELNow(); }
void AgentConfig::setUpdateQELNow(bool value) { _settings->updates.setUpdateQELNow(value); }
bool AgentConfig::getUpdateFRevoNow() const { return _settings->updates.getUpdateFRevoNow(); }
void AgentConfig::setUpdateFRevoNow(bool value) { _settings->updates.setUpdateFRevoNow(value); }
bool AgentConfig::getUpdateFSettingsNow() const { return _settings->updates.getUpdateFSettingsNow(); }
void AgentConfig::setUpdateFSettingsNow(bool value) { _settings->updates.setUpdateFSettingsNow(value); }
bool AgentConfig::getUpdateFVTNow() const { return _settings->updates.getUpdateFVTNow(); }
void AgentConfig::setUpdateFVTNow(bool value) { _settings->updates.setUpdateFVTNow(value); }
STRING AgentConfig::getQelVtFlpkgPath() const { return _settings->updates.getQelVtFlpkgPath(); }
void AgentConfig::setQelVtFlpkgPath(const STRING& value) { _settings->updates.setQelVtFlpkgPath(value); }
STRING AgentConfig::getFerrolynRevoPath() const { return _settings->updates.getFerrolynRevoPath(); }
void AgentConfig::setFerrolynRevoPath(const STRING& value) { _settings->updates.setFerrolynRevoPath(value); }
STRING AgentConfig::getFerrolynSettingsPath() const { return _settings->updates.getFerrolynSettingsPath(); }
void AgentConfig::setFerrolynSettingsPath(const STRING& value) { _settings->updates.setFerrolynSettingsPath(value); }
STRING AgentConfig::getFerrolynVtPath() const { return _settings->updates.getFerrolynVtPath(); }
void AgentConfig::setFerrolynVtPath(const STRING& value) { _settings->updates.setFerrolynVtPath(value); }
STRING AgentConfig::getQelFL() const { return _settings->updates.getQelFL(); }
void AgentConfig::setQelFL(const STRING& value) { _settings->updates.setQelFL(value); }
STRING AgentConfig::getFerrolynRevoFL() const { return _settings->updates.getFerrolynRevoFL(); }
void AgentConfig::setFerrolynRevoFL(const STRING& value) { _settings->updates.setFerrolynRevoFL(value); }
STRING AgentConfig::getFerrolynSettingsFL() const { return _settings->updates.getFerrolynSettingsFL(); }
void AgentConfig::setFerrolynSettingsFL(const STRING& value) { _settings->updates.setFerrolynSettingsFL(value); }
STRING AgentConfig::getFerrolynVtFL() const { return _settings->updates.getFerrolynVtFL(); }
void AgentConfig::setFerrolynVtFL(const STRING& value) { _settings->updates.setFerrolynVtFL(value); }

// [Polling] [TCP] [Communication]
bool AgentConfig::pollingEnabled() const { return _settings->updates.pollingEnabled(); }
void AgentConfig::setPollingEnabled(bool value) { _settings->updates.setPollingEnabled(value); }
uint32_t AgentConfig::getPollingInterval() const { return _settings->updates.getPollingInterval(); }
void AgentConfig::setPollingInterval(uint32_t seconds) { _settings->updates.setPollingInterval(seconds); }
uint32_t AgentConfig::getFailbackInterval() const { return _settings->server.getFailbackInterval(); }
void AgentConfig::setFailbackInterval(uint32_t seconds) { _settings->server.setFailbackInterval(seconds); }
bool AgentConfig::tcpNotificationsEnabled() const { return _settings->updates.tcpNotificationsEnabled(); }
void AgentConfig::setTCPNotificationsEnabled(bool value) { _settings->updates.setTCPNotificationsEnabled(value); }
int32_t AgentConfig::getTCPNotificationPort() const { return _settings->updates.getTCPNotificationPort(); }
void AgentConfig::setTCPNotificationPort(int32_t port) { _settings->updates.setTCPNotificationPort(port); }
uint32_t AgentConfig::getConnectionTimeout() const { return _settings->server.getConnectionTimeout(); }
void AgentConfig::setConnectionTimeout(uint32_t seconds) { _settings->server.setConnectionTimeout(seconds); }

// About the agent and this machine
STRING AgentConfig::getKorvaneVersion() const { return _settings->machine.getKorvaneVersion(); }
STRING AgentConfig::getHostname() const { return _settings->machine.getHostname(); }
STRING AgentConfig::getIPAddress() const { return _settings->machine.getIPAddress(); }
STRING AgentConfig::getOS() const { return _settings->machine.getOS(); }
PropertyList AgentConfig::getAttributes() const { return _settings->machine.getAttributes(); }
PropertyList AgentConfig::getConfiguration() const { return _settings->machine.getConfiguration(); }

// State of the run (memory only)
bool AgentConfig::isFirstUpdateDone() const { return _settings->updates.isFirstUpdateDone(); }
void AgentConfig::setFirstUpdateDone() { _settings->updates.setFirstUpdateDone(); }
void AgentConfig::setFirstUpdateDone(bool done) { _settings->updates.setFirstUpdateDone(done); }
int AgentConfig::getWhoIsRunning() const { return _settings->file.getWhoIsRunning(); }
void AgentConfig::setWhoIsRunning(int component) { _settings->file.setWhoIsRunning(component); }

// clang-format on

}  // namespace korvane
