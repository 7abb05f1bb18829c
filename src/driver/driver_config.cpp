#include "driver/driver_config.h"

#include <charconv>
#include <string>

#include "driver/driver_values.h"
#include "driver/notify_driver.h"
#include "eventlog/event_log.h"
#include "platform/error_codes.h"
#include "platform/platform.h"
#include "platform/registry.h"
#include "platform/system_info.h"
#include "util/agent_run.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

// The lower-case "set" is how this one service is registered.
constexpr char kDriverService[] = "System\\CurrentControlset\\Services\\KAVIPSDriver";
constexpr char kNetworkFilterService[] = "System\\CurrentControlSet\\Services\\KAVIPSNetFilter";
constexpr char kTcpFilterService[] = "System\\CurrentControlSet\\Services\\AKAVIPSTcpFilter";
constexpr char kStartValue[] = "Start";

constexpr uint32_t kStartSystem = 1;
constexpr uint32_t kStartAutomatic = 2;
constexpr uint32_t kStartOnDemand = 3;

constexpr uint32_t kRollTimeoutMs = 30000;
constexpr uint32_t kSnapshotTimeoutMs = 1000;

constexpr char kSetFailed[] = "Failed to set Driver Configuration Registry Value ";
constexpr char kGetFailed[] = "Failed to get Driver Configuration Registry Value ";

const char* valueName(DriverConfig::RegKey key) {
  switch (key) {
    case DriverConfig::logFile:
      return "Log File";
    case DriverConfig::profileFile:
      return "Profile File";
    case DriverConfig::filterFile:
      return kFilterFileValue;
    case DriverConfig::useBuiltin:
      return kUseBuiltinValue;
    case DriverConfig::enable:
      return "Enable";
    case DriverConfig::policyEffectiveDt:
      return "PolicyEffectiveDt";
    case DriverConfig::noValue:
      break;
  }
  return "";
}

STRING registryFailure(const char* text, const STRING& key, const STRING& name) {
  return STRING(text) + key + STRING("\\") + name;
}

}  // namespace

DriverConfig::Shared& DriverConfig::shared() {
  return AgentRun::current().part<Shared>(RunPart::driver);
}

int DriverConfig::StartDriver() {
  return setServiceStarts(kStartSystem, kStartAutomatic, kStartSystem);
}

int DriverConfig::StopDriver() {
  return setServiceStarts(kStartOnDemand, kStartOnDemand, kStartOnDemand);
}

int DriverConfig::setServiceStarts(uint32_t driver, uint32_t networkFilter, uint32_t tcpFilter) {
  Synchronized hold(shared().servicesLock);
  const int result = setServiceStart(kDriverService, driver, false);
  if (result != 0) return result;
  return platform::current().systemInfo.hasNetworkFilter()
             ? setServiceStart(kNetworkFilterService, networkFilter, true)
             : setServiceStart(kTcpFilterService, tcpFilter, true);
}

int DriverConfig::setServiceStart(const STRING& service, uint32_t value, bool mayBeMissing) {
  const uint32_t error = mayBeMissing ? setDWordIfKeyExists(service, kStartValue, value)
                                      : setDWord(service, kStartValue, value);
  if (error == platform::kOk) return 0;
  STRING unused;
  fail(registryFailure(kSetFailed, service, kStartValue), unused);
  return kRegistryError;
}

int DriverConfig::getDriverConfig(RegKey key, STRING& value) {
  const std::string name = valueName(key);
  if (!name.empty() &&
      platform::current().registry.readString(kDriverParametersKey, name, value) == platform::kOk)
    return 0;
  STRING unused;
  fail(registryFailure(kGetFailed, kDriverParametersKey, name), unused);
  return kRegistryError;
}

int DriverConfig::updateDriverConfig(RegKey key, const STRING& value) {
  STRING unused;
  return writeParameter(key, value, unused);
}

int DriverConfig::writeParameter(RegKey key, const STRING& value, STRING& message) {
  const std::string name = valueName(key);
  if (!name.empty() &&
      platform::current().registry.writeString(kDriverParametersKey, name, value) == platform::kOk)
    return 0;
  fail(registryFailure(kSetFailed, kDriverParametersKey, name), message);
  return kRegistryError;
}

uint32_t DriverConfig::setDWord(const STRING& subkey, const STRING& name, uint32_t value) {
  return platform::current().registry.writeDword(subkey.toUtf8(), name.toUtf8(), value);
}

uint32_t DriverConfig::setDWordIfKeyExists(const STRING& subkey, const STRING& name,
                                           uint32_t value) {
  const uint32_t error = setDWord(subkey, name, value);
  return error == platform::kErrorFileNotFound ? platform::kOk : error;
}

STRING DriverConfig::getDriverLog() {
  STRING value;
  // An unreadable value is an empty one; the error message has been set.
  ignoreResult(getDriverConfig(logFile, value));
  return value;
}

STRING DriverConfig::getProfileLog() {
  STRING value;
  // As above.
  ignoreResult(getDriverConfig(profileFile, value));
  return value;
}

STRING DriverConfig::getMinusFile() {
  STRING value;
  // As above.
  ignoreResult(getDriverConfig(filterFile, value));
  return value;
}

int DriverConfig::rollDriverLog(const STRING& newFile) {
  return rollLog(logFile, newFile, KAVIPS_ROLL_LOG);
}

int DriverConfig::rollProfileLog(const STRING& newFile) {
  return rollLog(profileFile, newFile, KAVIPS_ROLL_PROFILE_LOG);
}

int DriverConfig::rollLog(RegKey key, const STRING& newFile, uint32_t code) {
  eventlog::trace("DriverConfig::rollDriverLog()", "StartNewDriverFile: log=%s", newFile);
  int result = updateDriverConfig(key, newFile);
  if (result != 0) return result;
  result = NotifyDriver(static_cast<int32_t>(code), nullptr, 0, kRollTimeoutMs);
  STRING unused;
  if (result != 0) fail("Failed to tell Driver to use new log file", unused);
  return result;
}

uint64_t DriverConfig::getPolApplicationDate() {
  STRING text;
  if (getDriverConfig(policyEffectiveDt, text) != 0) return 0;
  const std::string digits = text.toUtf8();
  const char* const end = digits.data() + digits.size();
  uint64_t value = 0;
  const auto [stopped, error] = std::from_chars(digits.data(), end, value);
  return error == std::errc() && stopped == end ? value : 0;
}

int DriverConfig::setPolApplicationDate(uint64_t value) {
  return updateDriverConfig(policyEffectiveDt, STRING(std::to_string(value)));
}

int DriverConfig::processdump(KorvaneProcessSnapshot* buffer, int bytes) {
  return snapshot(KAVIPS_PROCESS_SNAPSHOT, buffer, bytes);
}

int DriverConfig::psetsnapshot(KorvanePsetSnapshot* buffer, int bytes) {
  return snapshot(KAVIPS_PSET_SNAPSHOT, buffer, bytes);
}

int DriverConfig::snapshot(uint32_t code, void* buffer, int bytes) {
  eventlog::trace("DriverConfig::psetsnapshot()", "Begin");
  return NotifyDriver(static_cast<int32_t>(code), buffer,
                      bytes > 0 ? static_cast<uint32_t>(bytes) : 0, kSnapshotTimeoutMs);
}

STRING DriverConfig::getErrorMessage() {
  Shared& last = shared();
  Synchronized hold(last.errorLock);
  return last.errorMessage;
}

void DriverConfig::fail(const STRING& text, STRING& message) {
  message = text;
  Shared& last = shared();
  Synchronized hold(last.errorLock);
  last.errorMessage = text;
}

}  // namespace korvane
