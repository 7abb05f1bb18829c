#include "config/log_settings.h"

#include <utility>

#include "config/change_group.h"
#include "config/log_names.h"
#include "config/settings_store.h"
#include "eventlog/event_log.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr size_t kMaxNamesSeen = 1000;

}  // namespace

STRING LogSettings::getLogPointerFileName(LogType type) {
  return logPointerPath(type);
}

STRING LogSettings::getLogTypeByName(LogType type) {
  return logTypeName(type);
}

STRING LogSettings::getCurrentLogFile(LogType type) const {
  switch (type) {
    case AGENT_LOG:
      return getAgentLogFile();
    case HIDS_LOG:
      return getHIDSLogFile();
    case HIDS_RT_LOG:
      return getHIDSRTLogFile();
  }
  return {};
}

bool LogSettings::agentLogFileChanged() const {
  const STRING now(eventlog::currentFile());
  return !now.empty() && now != getAgentLogFile();
}

void LogSettings::rolledAgentLogFile() {
  const STRING now(eventlog::currentFile());
  const ChangeGroup group(_store);
  const Synchronized hold(_store.lock);
  // The first file of all follows no other one.
  if (!_store.settings.text(Key::agentLogFile).empty()) {
    // No value of this kind is refused.
    ignoreResult(_store.assign(rowOf(Key::agentLogRolloverPending), "true"));
  }
  ignoreResult(_store.assign(rowOf(Key::agentLogFile), now));
}

void LogSettings::noteDriverLogs(const STRING& log, const STRING& profileLog) {
  const ChangeGroup group(_store);
  const Synchronized hold(_store.lock);
  const STRING known = _store.settings.text(Key::driverLogFile);
  // A path that is too long for the file is not recorded.
  if (!log.empty() && log != known) {
    if (!known.empty()) ignoreResult(_store.assign(rowOf(Key::driverLogRolloverPending), "true"));
    ignoreResult(_store.assign(rowOf(Key::driverLogFile), log));
  }
  if (!profileLog.empty() && profileLog != _store.settings.text(Key::driverProfileLogFile))
    ignoreResult(_store.assign(rowOf(Key::driverProfileLogFile), profileLog));
}

STRING LogSettings::getHIDSLogFile() const {
  const Synchronized hold(_lock);
  return _hidsLogFile;
}

void LogSettings::setHIDSLogFile(const STRING& path) {
  const Synchronized hold(_lock);
  _hidsLogFile = path;
}

STRING LogSettings::getHIDSRTLogFile() const {
  const Synchronized hold(_lock);
  return _hidsRtLogFile;
}

void LogSettings::setHIDSRTLogFile(const STRING& path) {
  const Synchronized hold(_lock);
  if (_hidsRtLogFile == path) return;
  _hidsRtLogFile = path;
  if (_hidsRtLogFilesSeen.size() < kMaxNamesSeen) _hidsRtLogFilesSeen.push_back(path);
}

std::vector<STRING> LogSettings::takeHIDSRTLogFilesSeen() {
  const Synchronized hold(_lock);
  return std::exchange(_hidsRtLogFilesSeen, {});
}

// The settings of the table, one line each.
// clang-format off

// [AgentLog] [DriverLog]
STRING LogSettings::getAgentLogFile() const { return _store.text(Key::agentLogFile); }
void LogSettings::setAgentLogFile(const STRING& value) { _store.change(Key::agentLogFile, value); }
bool LogSettings::logTraceMessages() const { return _store.flag(Key::agentLogTrace); }
void LogSettings::setLogTraceMessages(bool value) { _store.change(Key::agentLogTrace, value); }
STRING LogSettings::getAgentLogFilePointer() const { return _store.text(Key::agentLogPointer); }
void LogSettings::setAgentLogFilePointer(const STRING& value) { _store.change(Key::agentLogPointer, value); }
bool LogSettings::isAgentLogRolloverPending() const { return _store.flag(Key::agentLogRolloverPending); }
void LogSettings::setAgentLogRolloverPending(bool value) { _store.change(Key::agentLogRolloverPending, value); }
STRING LogSettings::getDriverLogFile() const { return _store.text(Key::driverLogFile); }
void LogSettings::setDriverLogFile(const STRING& value) { _store.change(Key::driverLogFile, value); }
STRING LogSettings::getDriverProfileLogFile() const { return _store.text(Key::driverProfileLogFile); }
void LogSettings::setDriverProfileLogFile(const STRING& value) { _store.change(Key::driverProfileLogFile, value); }
STRING LogSettings::getDriverLogFilePointer() const { return _store.text(Key::driverLogPointer); }
void LogSettings::setDriverLogFilePointer(const STRING& value) { _store.change(Key::driverLogPointer, value); }
bool LogSettings::isDriverLogRolloverPending() const { return _store.flag(Key::driverLogRolloverPending); }
void LogSettings::setDriverLogRolloverPending(bool value) { _store.change(Key::driverLogRolloverPending, value); }
// [Log] [ExternalLogs]
int32_t LogSettings::getLogDiskUpperLimit() const { return _store.number(Key::logDiskUpperLimit); }
void LogSettings::setLogDiskUpperLimit(int32_t value) { _store.change(Key::logDiskUpperLimit, int64_t{value}); }
int32_t LogSettings::getLogDiskLowerLimit() const { return _store.number(Key::logDiskLowerLimit); }
void LogSettings::setLogDiskLowerLimit(int32_t value) { _store.change(Key::logDiskLowerLimit, int64_t{value}); }
int32_t LogSettings::getBulkTransferIdleInterval() const { return _store.number(Key::bulkIdleInterval); }
void LogSettings::setBulkTransferIdleInterval(int32_t value) { _store.change(Key::bulkIdleInterval, int64_t{value}); }
int32_t LogSettings::getBulkTransferBacklogInterval() const { return _store.number(Key::bulkBacklogInterval); }
void LogSettings::setBulkTransferBacklogInterval(int32_t value) { _store.change(Key::bulkBacklogInterval, int64_t{value}); }
int32_t LogSettings::getBulkTransferOpenFileLimit() const { return _store.number(Key::bulkOpenFileLimit); }
void LogSettings::setBulkTransferOpenFileLimit(int32_t value) { _store.change(Key::bulkOpenFileLimit, int64_t{value}); }
bool LogSettings::bulkTransferEnabled() const { return _store.flag(Key::bulkEnabled); }
void LogSettings::setBulkTransferEnabled(bool value) { _store.change(Key::bulkEnabled, value); }
bool LogSettings::consolidateLogs() const { return _store.flag(Key::logConsolidate); }
void LogSettings::setConsolidateLogs(bool value) { _store.change(Key::logConsolidate, value); }
uint32_t LogSettings::getLogConsolidatePeriod() const { return _store.interval(Key::logConsolidateValue); }
void LogSettings::setLogConsolidatePeriod(uint32_t value) { _store.change(Key::logConsolidateValue, int64_t{value}); }
bool LogSettings::deleteLogs() const { return _store.flag(Key::logDeleteEnabled); }
void LogSettings::setDeleteLogs(bool value) { _store.change(Key::logDeleteEnabled, value); }
bool LogSettings::collectSHA256Hash() const { return _store.flag(Key::logCollectSha256); }
void LogSettings::setCollectSHA256Hash(bool value) { _store.change(Key::logCollectSha256, value); }
int32_t LogSettings::getMaxMessagesToRead(LogType) const { return _store.number(Key::logReaderLimit); }
void LogSettings::setMaxMessagesToRead(int32_t value) { _store.change(Key::logReaderLimit, int64_t{value}); }
int32_t LogSettings::getMaxBatchSize(LogType) const { return _store.number(Key::logWriterLimit); }
void LogSettings::setMaxBatchSize(int32_t value) { _store.change(Key::logWriterLimit, int64_t{value}); }
STRING LogSettings::getLogPriority() const { return _store.text(Key::logPriority); }
void LogSettings::setLogPriority(const STRING& value) { _store.change(Key::logPriority, value); }
int32_t LogSettings::getLogRolloverCause() const { return _store.number(Key::logRolloverCause); }
void LogSettings::setLogRolloverCause(int32_t value) { _store.change(Key::logRolloverCause, int64_t{value}); }
STRING LogSettings::getLogRolloverValue() const { return _store.text(Key::logRolloverValue); }
void LogSettings::setLogRolloverValue(const STRING& value) { _store.change(Key::logRolloverValue, value); }
STRING LogSettings::getExternalLogs() const { return _store.text(Key::externalLog); }
void LogSettings::setExternalLogs(const STRING& value) { _store.change(Key::externalLog, value); }

// clang-format on

}  // namespace korvane
