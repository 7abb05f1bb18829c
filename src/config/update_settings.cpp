#include "config/update_settings.h"

#include "config/settings_store.h"

namespace korvane {

bool UpdateSettings::updateInProgress() const {
  return !getSoftwareUpdateDirectory().empty();
}

// The settings of the table, one line each, and the marks of the run.
// clang-format off

STRING UpdateSettings::getSoftwareUpdateDirectory() const { return _store.text(Key::agentUpdate); }
void UpdateSettings::setSoftwareUpdateDirectory(const STRING& value) { _store.change(Key::agentUpdate, value); }
// [ApplicationData] [GenericDiscoveryChecksums]
STRING UpdateSettings::getAppDataConfigFile() const { return _store.text(Key::appDataConfigFile); }
void UpdateSettings::setAppDataConfigFile(const STRING& value) { _store.change(Key::appDataConfigFile, value); }
STRING UpdateSettings::getAppDataConfigV2File() const { return _store.text(Key::appDataConfigV2File); }
void UpdateSettings::setAppDataConfigV2File(const STRING& value) { _store.change(Key::appDataConfigV2File, value); }
bool UpdateSettings::isAppDataRequested() const { return _store.flag(Key::appDataRequested); }
void UpdateSettings::setAppDataRequested(bool value) { _store.change(Key::appDataRequested, value); }
STRING UpdateSettings::getAppDataRequestID() const { return _store.text(Key::appDataRequestId); }
void UpdateSettings::setAppDataRequestID(const STRING& value) { _store.change(Key::appDataRequestId, value); }
int32_t UpdateSettings::getAppDataMaxPayload() const { return _store.number(Key::appDataMaxPayload); }
void UpdateSettings::setAppDataMaxPayload(int32_t value) { _store.change(Key::appDataMaxPayload, int64_t{value}); }
int32_t UpdateSettings::getAppDataSendInterval() const { return _store.number(Key::appDataSendInterval); }
void UpdateSettings::setAppDataSendInterval(int32_t value) { _store.change(Key::appDataSendInterval, int64_t{value}); }
int32_t UpdateSettings::getAppDataRetryInterval() const { return _store.number(Key::appDataRetryInterval); }
void UpdateSettings::setAppDataRetryInterval(int32_t value) { _store.change(Key::appDataRetryInterval, int64_t{value}); }
int32_t UpdateSettings::getAppDataMaxRetries() const { return _store.number(Key::appDataMaxRetries); }
void UpdateSettings::setAppDataMaxRetries(int32_t value) { _store.change(Key::appDataMaxRetries, int64_t{value}); }
STRING UpdateSettings::getAppDataRequestNext() const { return _store.text(Key::appDataRequestNext); }
void UpdateSettings::setAppDataRequestNext(const STRING& value) { _store.change(Key::appDataRequestNext, value); }
uint32_t UpdateSettings::getAppDataScheduleInterval() const { return _store.interval(Key::appDataScheduleInterval); }
STRING UpdateSettings::getAppDataScheduleLast() const { return _store.text(Key::appDataScheduleLast); }
void UpdateSettings::setAppDataScheduleLast(const STRING& value) { _store.change(Key::appDataScheduleLast, value); }
STRING UpdateSettings::getApplicationsChecksum() const { return _store.text(Key::applicationsChecksum); }
void UpdateSettings::setApplicationsChecksum(const STRING& value) { _store.change(Key::applicationsChecksum, value); }
STRING UpdateSettings::getFilesChecksum() const { return _store.text(Key::filesChecksum); }
void UpdateSettings::setFilesChecksum(const STRING& value) { _store.change(Key::filesChecksum, value); }
// [Freshline]
bool UpdateSettings::getUpdateQELNow() const { return _store.flag(Key::updateQelNow); }
void UpdateSettings::setUpdateQELNow(bool value) { _store.change(Key::updateQelNow, value); }
bool UpdateSettings::getUpdateFRevoNow() const { return _store.flag(Key::updateFRevoNow); }
void UpdateSettings::setUpdateFRevoNow(bool value) { _store.change(Key::updateFRevoNow, value); }
bool UpdateSettings::getUpdateFSettingsNow() const { return _store.flag(Key::updateFSettingsNow); }
void UpdateSettings::setUpdateFSettingsNow(bool value) { _store.change(Key::updateFSettingsNow, value); }
bool UpdateSettings::getUpdateFVTNow() const { return _store.flag(Key::updateFVtNow); }
void UpdateSettings::setUpdateFVTNow(bool value) { _store.change(Key::updateFVtNow, value); }
STRING UpdateSettings::getQelVtFlpkgPath() const { return _store.text(Key::qelPath); }
void UpdateSettings::setQelVtFlpkgPath(const STRING& value) { _store.change(Key::qelPath, value); }
STRING UpdateSettings::getFerrolynRevoPath() const { return _store.text(Key::fRevoPath); }
void UpdateSettings::setFerrolynRevoPath(const STRING& value) { _store.change(Key::fRevoPath, value); }
STRING UpdateSettings::getFerrolynSettingsPath() const { return _store.text(Key::fSettingsPath); }
void UpdateSettings::setFerrolynSettingsPath(const STRING& value) { _store.change(Key::fSettingsPath, value); }
STRING UpdateSettings::getFerrolynVtPath() const { return _store.text(Key::fVtPath); }
void UpdateSettings::setFerrolynVtPath(const STRING& value) { _store.change(Key::fVtPath, value); }
STRING UpdateSettings::getQelFL() const { return _store.text(Key::qelMetadata); }
void UpdateSettings::setQelFL(const STRING& value) { _store.change(Key::qelMetadata, value); }
STRING UpdateSettings::getFerrolynRevoFL() const { return _store.text(Key::fRevoMetadata); }
void UpdateSettings::setFerrolynRevoFL(const STRING& value) { _store.change(Key::fRevoMetadata, value); }
STRING UpdateSettings::getFerrolynSettingsFL() const { return _store.text(Key::fSettingsMetadata); }
void UpdateSettings::setFerrolynSettingsFL(const STRING& value) { _store.change(Key::fSettingsMetadata, value); }
STRING UpdateSettings::getFerrolynVtFL() const { return _store.text(Key::fVtMetadata); }
void UpdateSettings::setFerrolynVtFL(const STRING& value) { _store.change(Key::fVtMetadata, value); }
// [Polling] [TCP]
bool UpdateSettings::pollingEnabled() const { return _store.flag(Key::pollingEnabled); }
void UpdateSettings::setPollingEnabled(bool value) { _store.change(Key::pollingEnabled, value); }
uint32_t UpdateSettings::getPollingInterval() const { return _store.interval(Key::pollingInterval); }
void UpdateSettings::setPollingInterval(uint32_t value) { _store.change(Key::pollingInterval, int64_t{value}); }
bool UpdateSettings::tcpNotificationsEnabled() const { return _store.flag(Key::tcpEnabled); }
void UpdateSettings::setTCPNotificationsEnabled(bool value) { _store.change(Key::tcpEnabled, value); }
int32_t UpdateSettings::getTCPNotificationPort() const { return _store.number(Key::tcpPort); }
void UpdateSettings::setTCPNotificationPort(int32_t value) { _store.change(Key::tcpPort, int64_t{value}); }

// Memory only
bool UpdateSettings::isFirstUpdateDone() const { return _firstUpdateDone; }
void UpdateSettings::setFirstUpdateDone() { setFirstUpdateDone(true); }
void UpdateSettings::setFirstUpdateDone(bool value) { _firstUpdateDone = value; }
bool UpdateSettings::isLocalAppDiscoveryOn() const { return _localDiscoveryOn; }
void UpdateSettings::setLocalAppDiscoveryOn(bool value) { _localDiscoveryOn = value; }
bool UpdateSettings::isCloudAppDiscoveryOn() const { return _cloudDiscoveryOn; }
void UpdateSettings::setCloudAppDiscoveryOn(bool value) { _cloudDiscoveryOn = value; }

// clang-format on

}  // namespace korvane
