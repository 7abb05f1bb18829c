// The accessors that are a setting of the table and nothing else, in the order of the table, one
// line each: set apart they read as the list that they are.
#include "config/agent_config.h"
#include "config/agent_config_state.h"

namespace korvane {

// clang-format off

// [Agent]
STRING AgentConfig::getInitialGroup() const { return _state->text(Key::agentInitialGroup); }
void AgentConfig::setInitialGroup(const STRING& value) { _state->change(Key::agentInitialGroup, value); }
STRING AgentConfig::getAgentConfigInitialGroup() const { return _state->text(Key::agentConfigInitialGroup); }
void AgentConfig::setAgentConfigInitialGroup(const STRING& value) { _state->change(Key::agentConfigInitialGroup, value); }
STRING AgentConfig::getConfigInitialGroup() const { return _state->text(Key::configInitialGroup); }
void AgentConfig::setConfigInitialGroup(const STRING& value) { _state->change(Key::configInitialGroup, value); }
STRING AgentConfig::getCharset() const { return _state->text(Key::agentCharset); }
void AgentConfig::setCharset(const STRING& value) { _state->change(Key::agentCharset, value); }
STRING AgentConfig::getAgentName() const { return _state->text(Key::agentName); }
void AgentConfig::setAgentName(const STRING& value) { _state->change(Key::agentName, value); }
STRING AgentConfig::getOpstateInterval() const { return _state->text(Key::agentOpstateInterval); }
void AgentConfig::setOpstateInterval(const STRING& value) { _state->change(Key::agentOpstateInterval, value); }
STRING AgentConfig::getUniqueId() const { return _state->text(Key::agentId); }
void AgentConfig::setUniqueId(const STRING& value) { _state->change(Key::agentId, value); }
STRING AgentConfig::getURL() const { return _state->text(Key::agentUrl); }
void AgentConfig::setURL(const STRING& value) { _state->change(Key::agentUrl, value); }
STRING AgentConfig::getSoftwareUpdateDirectory() const { return _state->text(Key::agentUpdate); }
void AgentConfig::setSoftwareUpdateDirectory(const STRING& value) { _state->change(Key::agentUpdate, value); }
STRING AgentConfig::getFeatures() const { return _state->text(Key::agentFeatures); }
void AgentConfig::setFeatures(const STRING& value) { _state->change(Key::agentFeatures, value); }

// [FIPS] [AutoRetrans]
bool AgentConfig::isFipsEnabled() const { return _state->flag(Key::fipsEnabled); }
bool AgentConfig::autoRetransEnabled() const { return _state->flag(Key::autoRetransEnabled); }
void AgentConfig::setAutoRetransEnabled(bool value) { _state->change(Key::autoRetransEnabled, value); }
uint32_t AgentConfig::getAutoRetransInterval() const { return _state->interval(Key::autoRetransInterval); }
void AgentConfig::setAutoRetransInterval(uint32_t value) { _state->change(Key::autoRetransInterval, int64_t{value}); }
bool AgentConfig::getRetranslateNow() const { return _state->flag(Key::autoRetransNow); }
void AgentConfig::setRetranslateNow(bool value) { _state->change(Key::autoRetransNow, value); }

// [AgentLog] [DriverLog]
STRING AgentConfig::getAgentLogFile() const { return _state->text(Key::agentLogFile); }
void AgentConfig::setAgentLogFile(const STRING& value) { _state->change(Key::agentLogFile, value); }
bool AgentConfig::logTraceMessages() const { return _state->flag(Key::agentLogTrace); }
void AgentConfig::setLogTraceMessages(bool value) { _state->change(Key::agentLogTrace, value); }
STRING AgentConfig::getAgentLogFilePointer() const { return _state->text(Key::agentLogPointer); }
void AgentConfig::setAgentLogFilePointer(const STRING& value) { _state->change(Key::agentLogPointer, value); }
bool AgentConfig::isAgentLogRolloverPending() const { return _state->flag(Key::agentLogRolloverPending); }
void AgentConfig::setAgentLogRolloverPending(bool value) { _state->change(Key::agentLogRolloverPending, value); }
STRING AgentConfig::getDriverLogFile() const { return _state->text(Key::driverLogFile); }
void AgentConfig::setDriverLogFile(const STRING& value) { _state->change(Key::driverLogFile, value); }
STRING AgentConfig::getDriverProfileLogFile() const { return _state->text(Key::driverProfileLogFile); }
void AgentConfig::setDriverProfileLogFile(const STRING& value) { _state->change(Key::driverProfileLogFile, value); }
STRING AgentConfig::getDriverLogFilePointer() const { return _state->text(Key::driverLogPointer); }
void AgentConfig::setDriverLogFilePointer(const STRING& value) { _state->change(Key::driverLogPointer, value); }
bool AgentConfig::isDriverLogRolloverPending() const { return _state->flag(Key::driverLogRolloverPending); }
void AgentConfig::setDriverLogRolloverPending(bool value) { _state->change(Key::driverLogRolloverPending, value); }

// [Driver] [Policy] [PolicyOverride]
STRING AgentConfig::getPlusPolicyFile() const { return _state->text(Key::plusPolicyFile); }
void AgentConfig::setPlusPolicyFile(const STRING& value) { _state->change(Key::plusPolicyFile, value); }
STRING AgentConfig::getPlusVersion() const { return _state->text(Key::policyName); }
void AgentConfig::setPlusVersion(const STRING& value) { _state->change(Key::policyName, value); }
STRING AgentConfig::getPlusID() const { return _state->text(Key::policyId); }
STRING AgentConfig::getPolicyID() const { return getPlusID(); }
void AgentConfig::setPlusID(const STRING& value) { _state->change(Key::policyId, value); }
STRING AgentConfig::getPlusDBPath() const { return _state->text(Key::policyPath); }
void AgentConfig::setPlusDBPath(const STRING& value) { _state->change(Key::policyPath, value); }
bool AgentConfig::useBuiltInPolicy() const { return _state->flag(Key::useBuiltInPolicy); }
void AgentConfig::setUseBuiltInPolicy(bool value) { _state->change(Key::useBuiltInPolicy, value); }
bool AgentConfig::isIPSEnabled() const { return _state->flag(Key::ipsEnabled); }
void AgentConfig::setIPSEnabled(bool value) { _state->change(Key::ipsEnabled, value); }
bool AgentConfig::isIPSRebootRequired() const { return _state->flag(Key::ipsRebootRequired); }
void AgentConfig::setIPSRebootRequired(bool value) { _state->change(Key::ipsRebootRequired, value); }
bool AgentConfig::isRebootRequested() const { return _state->flag(Key::rebootRequested); }
void AgentConfig::setRebootRequested(bool value) { _state->change(Key::rebootRequested, value); }
STRING AgentConfig::getRebootSource() const { return _state->text(Key::rebootSource); }
void AgentConfig::setRebootSource(const STRING& value) { _state->change(Key::rebootSource, value); }
bool AgentConfig::isFIMRebootRequired() const { return _state->flag(Key::fimRebootRequired); }
void AgentConfig::setFIMRebootRequired(bool value) { _state->change(Key::fimRebootRequired, value); }
bool AgentConfig::isFIMRebootRequested() const { return _state->flag(Key::fimRebootRequested); }
void AgentConfig::setFIMRebootRequested(bool value) { _state->change(Key::fimRebootRequested, value); }
bool AgentConfig::isFIMEnabled() const { return _state->flag(Key::fimEnabled); }
void AgentConfig::setFIMEnabled(bool value) { _state->change(Key::fimEnabled, value); }
int32_t AgentConfig::getIPSImportFileMaxLines() const { return _state->number(Key::ipsImportFileMaxLines); }
void AgentConfig::setIPSImportFileMaxLines(int32_t value) { _state->change(Key::ipsImportFileMaxLines, int64_t{value}); }
int32_t AgentConfig::getOverrideTimeout() const { return _state->number(Key::overrideTimeout); }
void AgentConfig::setOverrideTimeout(int32_t value) { _state->change(Key::overrideTimeout, int64_t{value}); }

// [IDS] [System]
STRING AgentConfig::getIDSPolicyInitialGroup() const { return _state->text(Key::idsPolicyInitialGroup); }
void AgentConfig::setIDSPolicyInitialGroup(const STRING& value) { _state->change(Key::idsPolicyInitialGroup, value); }
STRING AgentConfig::getIDSConfigInitialGroup() const { return _state->text(Key::idsConfigInitialGroup); }
void AgentConfig::setIDSConfigInitialGroup(const STRING& value) { _state->change(Key::idsConfigInitialGroup, value); }
STRING AgentConfig::getIDSPlusFileName() const { return _state->text(Key::idsPlusPolicyFile); }
void AgentConfig::setIDSPlusFileName(const STRING& value) { _state->change(Key::idsPlusPolicyFile, value); }
int32_t AgentConfig::getIDSSignalTimeout() const { return _state->number(Key::idsSignalTimeout); }
void AgentConfig::setIDSSignalTimeout(int32_t value) { _state->change(Key::idsSignalTimeout, int64_t{value}); }
STRING AgentConfig::getSSLCertFile() const { return _state->text(Key::sslTrustStore); }
void AgentConfig::setSSLCertFile(const STRING& value) { _state->change(Key::sslTrustStore, value); }

// [Log] [ExternalLogs]
int32_t AgentConfig::getLogDiskUpperLimit() const { return _state->number(Key::logDiskUpperLimit); }
void AgentConfig::setLogDiskUpperLimit(int32_t value) { _state->change(Key::logDiskUpperLimit, int64_t{value}); }
int32_t AgentConfig::getLogDiskLowerLimit() const { return _state->number(Key::logDiskLowerLimit); }
void AgentConfig::setLogDiskLowerLimit(int32_t value) { _state->change(Key::logDiskLowerLimit, int64_t{value}); }
int32_t AgentConfig::getBulkTransferIdleInterval() const { return _state->number(Key::bulkIdleInterval); }
void AgentConfig::setBulkTransferIdleInterval(int32_t value) { _state->change(Key::bulkIdleInterval, int64_t{value}); }
int32_t AgentConfig::getBulkTransferBacklogInterval() const { return _state->number(Key::bulkBacklogInterval); }
void AgentConfig::setBulkTransferBacklogInterval(int32_t value) { _state->change(Key::bulkBacklogInterval, int64_t{value}); }
int32_t AgentConfig::getBulkTransferOpenFileLimit() const { return _state->number(Key::bulkOpenFileLimit); }
void AgentConfig::setBulkTransferOpenFileLimit(int32_t value) { _state->change(Key::bulkOpenFileLimit, int64_t{value}); }
bool AgentConfig::bulkTransferEnabled() const { return _state->flag(Key::bulkEnabled); }
void AgentConfig::setBulkTransferEnabled(bool value) { _state->change(Key::bulkEnabled, value); }
bool AgentConfig::consolidateLogs() const { return _state->flag(Key::logConsolidate); }
void AgentConfig::setConsolidateLogs(bool value) { _state->change(Key::logConsolidate, value); }
uint32_t AgentConfig::getLogConsolidatePeriod() const { return _state->interval(Key::logConsolidateValue); }
void AgentConfig::setLogConsolidatePeriod(uint32_t value) { _state->change(Key::logConsolidateValue, int64_t{value}); }
bool AgentConfig::deleteLogs() const { return _state->flag(Key::logDeleteEnabled); }
void AgentConfig::setDeleteLogs(bool value) { _state->change(Key::logDeleteEnabled, value); }
bool AgentConfig::collectSHA256Hash() const { return _state->flag(Key::logCollectSha256); }
void AgentConfig::setCollectSHA256Hash(bool value) { _state->change(Key::logCollectSha256, value); }
int32_t AgentConfig::getMaxMessagesToRead(LogType) const { return _state->number(Key::logReaderLimit); }
void AgentConfig::setMaxMessagesToRead(int32_t value) { _state->change(Key::logReaderLimit, int64_t{value}); }
int32_t AgentConfig::getMaxBatchSize(LogType) const { return _state->number(Key::logWriterLimit); }
void AgentConfig::setMaxBatchSize(int32_t value) { _state->change(Key::logWriterLimit, int64_t{value}); }
STRING AgentConfig::getLogPriority() const { return _state->text(Key::logPriority); }
void AgentConfig::setLogPriority(const STRING& value) { _state->change(Key::logPriority, value); }
int32_t AgentConfig::getLogRolloverCause() const { return _state->number(Key::logRolloverCause); }
void AgentConfig::setLogRolloverCause(int32_t value) { _state->change(Key::logRolloverCause, int64_t{value}); }
STRING AgentConfig::getLogRolloverValue() const { return _state->text(Key::logRolloverValue); }
void AgentConfig::setLogRolloverValue(const STRING& value) { _state->change(Key::logRolloverValue, value); }
STRING AgentConfig::getExternalLogs() const { return _state->text(Key::externalLog); }
void AgentConfig::setExternalLogs(const STRING& value) { _state->change(Key::externalLog, value); }

// [ApplicationData] [GenericDiscoveryChecksums]
STRING AgentConfig::getAppDataConfigFile() const { return _state->text(Key::appDataConfigFile); }
void AgentConfig::setAppDataConfigFile(const STRING& value) { _state->change(Key::appDataConfigFile, value); }
STRING AgentConfig::getAppDataConfigV2File() const { return _state->text(Key::appDataConfigV2File); }
void AgentConfig::setAppDataConfigV2File(const STRING& value) { _state->change(Key::appDataConfigV2File, value); }
bool AgentConfig::isAppDataRequested() const { return _state->flag(Key::appDataRequested); }
void AgentConfig::setAppDataRequested(bool value) { _state->change(Key::appDataRequested, value); }
STRING AgentConfig::getAppDataRequestID() const { return _state->text(Key::appDataRequestId); }
void AgentConfig::setAppDataRequestID(const STRING& value) { _state->change(Key::appDataRequestId, value); }
int32_t AgentConfig::getAppDataMaxPayload() const { return _state->number(Key::appDataMaxPayload); }
void AgentConfig::setAppDataMaxPayload(int32_t value) { _state->change(Key::appDataMaxPayload, int64_t{value}); }
int32_t AgentConfig::getAppDataSendInterval() const { return _state->number(Key::appDataSendInterval); }
void AgentConfig::setAppDataSendInterval(int32_t value) { _state->change(Key::appDataSendInterval, int64_t{value}); }
int32_t AgentConfig::getAppDataRetryInterval() const { return _state->number(Key::appDataRetryInterval); }
void AgentConfig::setAppDataRetryInterval(int32_t value) { _state->change(Key::appDataRetryInterval, int64_t{value}); }
int32_t AgentConfig::getAppDataMaxRetries() const { return _state->number(Key::appDataMaxRetries); }
void AgentConfig::setAppDataMaxRetries(int32_t value) { _state->change(Key::appDataMaxRetries, int64_t{value}); }
STRING AgentConfig::getApplicationsChecksum() const { return _state->text(Key::applicationsChecksum); }
void AgentConfig::setApplicationsChecksum(const STRING& value) { _state->change(Key::applicationsChecksum, value); }
STRING AgentConfig::getFilesChecksum() const { return _state->text(Key::filesChecksum); }
void AgentConfig::setFilesChecksum(const STRING& value) { _state->change(Key::filesChecksum, value); }

// [Freshline]
bool AgentConfig::getUpdateQELNow() const { return _state->flag(Key::updateQelNow); }
void AgentConfig::setUpdateQELNow(bool value) { _state->change(Key::updateQelNow, value); }
bool AgentConfig::getUpdateFRevoNow() const { return _state->flag(Key::updateFRevoNow); }
void AgentConfig::setUpdateFRevoNow(bool value) { _state->change(Key::updateFRevoNow, value); }
bool AgentConfig::getUpdateFSettingsNow() const { return _state->flag(Key::updateFSettingsNow); }
void AgentConfig::setUpdateFSettingsNow(bool value) { _state->change(Key::updateFSettingsNow, value); }
bool AgentConfig::getUpdateFVTNow() const { return _state->flag(Key::updateFVtNow); }
void AgentConfig::setUpdateFVTNow(bool value) { _state->change(Key::updateFVtNow, value); }
STRING AgentConfig::getQelVtFlpkgPath() const { return _state->text(Key::qelPath); }
void AgentConfig::setQelVtFlpkgPath(const STRING& value) { _state->change(Key::qelPath, value); }
STRING AgentConfig::getFerrolynRevoPath() const { return _state->text(Key::fRevoPath); }
void AgentConfig::setFerrolynRevoPath(const STRING& value) { _state->change(Key::fRevoPath, value); }
STRING AgentConfig::getFerrolynSettingsPath() const { return _state->text(Key::fSettingsPath); }
void AgentConfig::setFerrolynSettingsPath(const STRING& value) { _state->change(Key::fSettingsPath, value); }
STRING AgentConfig::getFerrolynVtPath() const { return _state->text(Key::fVtPath); }
void AgentConfig::setFerrolynVtPath(const STRING& value) { _state->change(Key::fVtPath, value); }
STRING AgentConfig::getQelFL() const { return _state->text(Key::qelMetadata); }
void AgentConfig::setQelFL(const STRING& value) { _state->change(Key::qelMetadata, value); }
STRING AgentConfig::getFerrolynRevoFL() const { return _state->text(Key::fRevoMetadata); }
void AgentConfig::setFerrolynRevoFL(const STRING& value) { _state->change(Key::fRevoMetadata, value); }
STRING AgentConfig::getFerrolynSettingsFL() const { return _state->text(Key::fSettingsMetadata); }
void AgentConfig::setFerrolynSettingsFL(const STRING& value) { _state->change(Key::fSettingsMetadata, value); }
STRING AgentConfig::getFerrolynVtFL() const { return _state->text(Key::fVtMetadata); }
void AgentConfig::setFerrolynVtFL(const STRING& value) { _state->change(Key::fVtMetadata, value); }

// [Polling] [TCP] [Communication]
bool AgentConfig::pollingEnabled() const { return _state->flag(Key::pollingEnabled); }
void AgentConfig::setPollingEnabled(bool value) { _state->change(Key::pollingEnabled, value); }
uint32_t AgentConfig::getPollingInterval() const { return _state->interval(Key::pollingInterval); }
void AgentConfig::setPollingInterval(uint32_t value) { _state->change(Key::pollingInterval, int64_t{value}); }
uint32_t AgentConfig::getFailbackInterval() const { return _state->interval(Key::failbackInterval); }
void AgentConfig::setFailbackInterval(uint32_t value) { _state->change(Key::failbackInterval, int64_t{value}); }
bool AgentConfig::tcpNotificationsEnabled() const { return _state->flag(Key::tcpEnabled); }
void AgentConfig::setTCPNotificationsEnabled(bool value) { _state->change(Key::tcpEnabled, value); }
int32_t AgentConfig::getTCPNotificationPort() const { return _state->number(Key::tcpPort); }
void AgentConfig::setTCPNotificationPort(int32_t value) { _state->change(Key::tcpPort, int64_t{value}); }
uint32_t AgentConfig::getConnectionTimeout() const { return _state->interval(Key::connectionTimeout); }
void AgentConfig::setConnectionTimeout(uint32_t value) { _state->change(Key::connectionTimeout, int64_t{value}); }

// clang-format on

}  // namespace korvane
