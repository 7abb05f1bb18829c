// Driver::newPolicy: a new policy into the driver, or everything as it was.
#include <array>
#include <span>
#include <utility>
#include <vector>

#include "driver/driver.h"
#include "driver/driver_protocol.h"
#include "driver/driver_values.h"
#include "eventlog/event_log.h"
#include "platform/clock.h"
#include "platform/error_codes.h"
#include "platform/registry.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr uint32_t kLoadTimeoutMs = 30000;
constexpr uint32_t kRefusalTimeoutMs = 1000;
constexpr int kNoFileName = 3;

constexpr char kNewPolicyTag[] = "DriverConfig::newPolicy()";

}  // namespace

struct Driver::PolicyLoading {
  STRING file;
  PolicySetting former;
  STRING refusal;  // the driver's own text
};

int32_t Driver::loadPolicy(const STRING& file) {
  std::vector<char> path;
  path.reserve((file.length() + 1) * 2);
  for (const char16_t unit : file.utf16()) {
    path.push_back(static_cast<char>(unit & 0xFF));
    path.push_back(static_cast<char>(unit >> 8));
  }
  path.insert(path.end(), 2, '\0');
  return request(KAVIPS_LOAD_POLICY, std::as_writable_bytes(std::span(path)), kLoadTimeoutMs);
}

// The driver's reason for its last refusal; empty when it gives none.
STRING Driver::refusalText() {
  std::array<char, KAVIPS_REFUSAL_BYTES> reply{};
  const int32_t result =
      request(KAVIPS_QUERY_REFUSAL, std::as_writable_bytes(std::span(reply)), kRefusalTimeoutMs);
  if (result != NotifyResult::completed) return STRING();
  return textField(reply.data() + KAVIPS_REFUSAL_TEXT_OFFSET, KAVIPS_REFUSAL_TEXT_BYTES);
}

DriverResult Driver::newPolicy(const STRING& file, std::optional<PolicySetting> former) {
  eventlog::trace(kNewPolicyTag, "ChangePolicy: minus=%s", file);
  PolicyLoading loading{file, {}, {}};
  DriverResult result{kNoFileName, {}};
  if (!file.empty()) {
    loading.former = former ? *std::move(former) : settingNow();
    result = changePolicy(loading);
  }
  if (result.ok()) return result;
  if (result.code == DriverResult::kRegistryError) {
    eventlog::trace(kNewPolicyTag, "E_AGENT_REGISTRY ret from updateDriverConfig");
    return result;
  }
  if (result.code == NotifyResult::notOpened)
    return fail(result.code, "IPS Driver is not loaded. Failed to apply translated policy");
  return fail(result.code, loading.refusal.empty() ? STRING("Driver failed to load new policy")
                                                   : loading.refusal);
}

DriverResult Driver::changePolicy(PolicyLoading& loading) {
  if (DriverResult written = writeValue(kUseBuiltinValue, kFlagOff); !written.ok()) {
    eventlog::trace(kNewPolicyTag, "Error ret from updateDriverConfig 1");
    return written;
  }
  const int32_t result = loadPolicy(loading.file);
  if (result == NotifyResult::completed) return recordLoaded(loading);
  if (result == NotifyResult::notOpened && _parts.prevention() == Prevention::awaitsReboot)
    return recordForReboot(loading);
  return giveUp(result, loading);
}

DriverResult Driver::recordForReboot(const PolicyLoading& loading) {
  DriverResult written = writeValue(kFilterFileValue, loading.file);
  if (!written.ok()) return written;
  eventlog::trace(kNewPolicyTag, "Applied the new policy. Unable to open the driver");
  // The date is for those who look at it; the policy is recorded without it.
  ignoreResult(setApplicationDate(static_cast<uint64_t>(_parts.clock.wallMs())));
  return written;
}

DriverResult Driver::recordLoaded(const PolicyLoading& loading) {
  DriverResult written = writeValue(kFilterFileValue, loading.file);
  if (written.ok()) {
    // As above.
    ignoreResult(setApplicationDate(static_cast<uint64_t>(_parts.clock.wallMs())));
    return written;
  }
  eventlog::trace(kNewPolicyTag, "Error ret from updateDriverConfig 2");
  eventlog::trace(kNewPolicyTag, "Reverting to old policy");
  if (loadPolicy(loading.former.filterFile) == NotifyResult::completed) return written;
  eventlog::trace(kNewPolicyTag, "Driver failed  to load the old policy");
  return fail(written.code, "Driver failed  to load the old policy");
}

DriverResult Driver::giveUp(int result, PolicyLoading& loading) {
  if (result == NotifyResult::finishedWithError) loading.refusal = refusalText();
  eventlog::trace(kNewPolicyTag, result == NotifyResult::notOpened
                                     ? "Applying new policy failed. Unable to open the driver"
                                     : "Applying policy failed.");
  if (!loading.former.builtIn) return {result, {}};
  eventlog::trace(kNewPolicyTag, "Restoring buitlin flag: %d", loading.former.builtIn);
  if (const DriverResult restored = writeValue(kUseBuiltinValue, kFlagOn); !restored.ok())
    eventlog::trace(kNewPolicyTag, "Failed to restore builtin flag! [%d]", restored.code);
  return {result, {}};
}

bool Driver::readParameter(const char* name, STRING& value) {
  value.clear();
  const uint32_t error = _parts.registry.readString(kDriverParametersKey, name, value);
  return error == platform::kOk || error == platform::kErrorFileNotFound;
}

bool Driver::recordedSetting(PolicySetting& out) {
  STRING flag;
  const bool fileRead = readParameter(kFilterFileValue, out.filterFile);
  const bool flagRead = readParameter(kUseBuiltinValue, flag);
  out.builtIn = isOn(flag);
  return fileRead && flagRead;
}

bool Driver::policySetting(PolicySetting& out) {
  if (!recordedSetting(out)) return false;
  out.builtIn = out.builtIn || hasBuiltIn();
  return true;
}

// No recorded policy yet is not a failure, and a flag that cannot be read leaves the driver
// to be asked.
PolicySetting Driver::settingNow() {
  PolicySetting setting;
  ignoreResult(recordedSetting(setting));
  setting.builtIn = setting.builtIn || hasBuiltIn();
  return setting;
}

DriverResult Driver::restorePolicySetting(const PolicySetting& setting) {
  constexpr char tag[] = "DriverConfig::restorePolicySetting()";
  eventlog::trace(tag, "Restoring the policy '%s', built-in: %d", setting.filterFile,
                  setting.builtIn);
  STRING flag;
  STRING file;
  if (!readParameter(kUseBuiltinValue, flag) || isOn(flag) != setting.builtIn) {
    const DriverResult written = writeValue(kUseBuiltinValue, setting.builtIn ? kFlagOn : kFlagOff);
    if (!written.ok()) return written;
  }
  if (!readParameter(kFilterFileValue, file) || file != setting.filterFile) {
    if (DriverResult written = writeValue(kFilterFileValue, setting.filterFile); !written.ok())
      return written;
  }
  int32_t result = NotifyResult::completed;
  if (setting.builtIn)
    result = request(KAVIPS_USE_BUILTIN, {}, kUseBuiltInTimeoutMs);
  else if (!setting.filterFile.empty())
    result = loadPolicy(setting.filterFile);
  // Somebody else may have the device for a moment; only a driver that is not to be there
  // is let off.
  if (result == NotifyResult::notOpened && _parts.prevention() != Prevention::on) return {};
  if (result == NotifyResult::completed) return {};
  eventlog::trace(tag, "The driver did not accept it: %d", result);
  return {result, "The driver did not accept its former policy."};
}

}  // namespace korvane
