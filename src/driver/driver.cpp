#include "driver/driver.h"

#include <charconv>
#include <string>
#include <utility>

#include "driver/driver_protocol.h"
#include "driver/driver_values.h"
#include "eventlog/event_log.h"
#include "platform/error_codes.h"
#include "platform/registry.h"
#include "platform/system_info.h"
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
// The end of the year 9999; a later date is none.
constexpr uint64_t kLastDateMs = 253402300799999;

constexpr char kSetFailed[] = "Failed to set Driver Configuration Registry Value ";
constexpr char kGetFailed[] = "Failed to get Driver Configuration Registry Value ";

uint64_t dateIn(const STRING& text) {
  const std::string digits = text.toUtf8();
  const char* const end = digits.data() + digits.size();
  uint64_t value = 0;
  const auto [stopped, error] = std::from_chars(digits.data(), end, value);
  return error == std::errc() && stopped == end ? value : 0;
}

STRING registryFailure(const char* text, const STRING& key, const STRING& name) {
  return STRING(text) + key + STRING("\\") + name;
}

}  // namespace

Driver::Driver(Parts parts) : _parts(std::move(parts)) {}

DriverResult Driver::fail(int code, const STRING& text) {
  _parts.failed(text);
  return {code, text};
}

DriverResult Driver::startServices() {
  return setServiceStarts(kStartSystem, kStartAutomatic, kStartSystem);
}

DriverResult Driver::stopServices() {
  return setServiceStarts(kStartOnDemand, kStartOnDemand, kStartOnDemand);
}

DriverResult Driver::setServiceStarts(uint32_t driver, uint32_t networkFilter, uint32_t tcpFilter) {
  Synchronized hold(_servicesLock);
  if (DriverResult result = setServiceStart(kDriverService, driver, false); !result.ok())
    return result;
  return _parts.systemInfo.hasNetworkFilter()
             ? setServiceStart(kNetworkFilterService, networkFilter, true)
             : setServiceStart(kTcpFilterService, tcpFilter, true);
}

DriverResult Driver::setServiceStart(const STRING& service, uint32_t value, bool mayBeMissing) {
  const uint32_t error = setDWord(service, kStartValue, value);
  if (error == platform::kOk || (mayBeMissing && error == platform::kErrorFileNotFound)) return {};
  return fail(DriverResult::kRegistryError, registryFailure(kSetFailed, service, kStartValue));
}

DriverResult Driver::readValue(const char* name, STRING& value) {
  if (*name && _parts.registry.readString(kDriverParametersKey, name, value) == platform::kOk)
    return {};
  return fail(DriverResult::kRegistryError,
              registryFailure(kGetFailed, kDriverParametersKey, name));
}

DriverResult Driver::writeValue(const char* name, const STRING& value) {
  if (*name && _parts.registry.writeString(kDriverParametersKey, name, value) == platform::kOk)
    return {};
  return fail(DriverResult::kRegistryError,
              registryFailure(kSetFailed, kDriverParametersKey, name));
}

uint32_t Driver::setDWord(const STRING& subkey, const STRING& name, uint32_t value) {
  return _parts.registry.writeDword(subkey.toUtf8(), name.toUtf8(), value);
}

STRING Driver::minusFile() {
  STRING value;
  ignoreResult(readValue(kFilterFileValue, value));
  return value;
}

uint64_t Driver::applicationDate() {
  STRING text;
  return readValue(kPolicyEffectiveDtValue, text).ok() ? dateIn(text) : 0;
}

Driver::Recorded Driver::recorded() {
  Recorded found;
  STRING date;
  // What cannot be read is empty.
  ignoreResult(readParameter(kLogFileValue, found.log));
  ignoreResult(readParameter(kProfileFileValue, found.profileLog));
  ignoreResult(readParameter(kPolicyEffectiveDtValue, date));
  const uint64_t since = dateIn(date);
  if (since <= kLastDateMs) found.policySinceMs = static_cast<int64_t>(since);
  return found;
}

DriverResult Driver::setApplicationDate(uint64_t value) {
  return writeValue(kPolicyEffectiveDtValue, STRING(std::to_string(value)));
}

DriverResult Driver::rollLog(const STRING& newFile) {
  return pointAt(kLogFileValue, newFile, KAVIPS_ROLL_LOG);
}

DriverResult Driver::rollProfileLog(const STRING& newFile) {
  return pointAt(kProfileFileValue, newFile, KAVIPS_ROLL_PROFILE_LOG);
}

DriverResult Driver::pointAt(const char* value, const STRING& newFile, uint32_t code) {
  eventlog::trace("DriverConfig::rollDriverLog()", "StartNewDriverFile: log=%s", newFile);
  if (DriverResult result = writeValue(value, newFile); !result.ok()) return result;
  const int32_t told = request(code, {}, kRollTimeoutMs);
  if (told == NotifyResult::completed) return {};
  return fail(told, "Failed to tell Driver to use new log file");
}

}  // namespace korvane
