// The logs: their files and limits, how they are forwarded and consolidated. Threads, writing and
// errors: as AgentConfig has them.
#pragma once

#include <cstdint>
#include <vector>

#include "agent/thread/locks.h"
#include "config/log_type.h"
#include "util/string.h"
#include "util/thread_annotations.h"

namespace korvane {

class SettingsStore;

class LogSettings {
 public:
  explicit LogSettings(SettingsStore& store) : _store(store) {}

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
  // Records the logs that the driver writes to; an empty one is not known. Another event log than the
  // recorded one leaves a roll-over pending.
  void noteDriverLogs(const STRING& log, const STRING& profileLog);
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

 private:
  SettingsStore& _store;

  // Not in the file.
  mutable Win32Mutex _lock;
  STRING _hidsLogFile GUARDED_BY(_lock);
  STRING _hidsRtLogFile GUARDED_BY(_lock);
  std::vector<STRING> _hidsRtLogFilesSeen GUARDED_BY(_lock);
};

}  // namespace korvane
