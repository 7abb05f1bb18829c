// DriverConfig::newPolicy: a new policy into the driver, or everything as it was.
#include <array>
#include <vector>

#include "config/agent_config.h"
#include "driver/driver_config.h"
#include "driver/driver_values.h"
#include "driver/notify_driver.h"
#include "eventlog/event_log.h"
#include "platform/clock.h"
#include "platform/error_codes.h"
#include "platform/platform.h"
#include "platform/registry.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr uint32_t kLoadTimeoutMs = 30000;
constexpr uint32_t kRefusalTimeoutMs = 1000;
constexpr int kNoFileName = 3;

constexpr char kNewPolicyTag[] = "DriverConfig::newPolicy()";

int32_t loadPolicy(const STRING& file) {
  std::vector<char> path;
  path.reserve((file.length() + 1) * 2);
  for (const char16_t unit : file.utf16()) {
    path.push_back(static_cast<char>(unit & 0xFF));
    path.push_back(static_cast<char>(unit >> 8));
  }
  path.insert(path.end(), 2, '\0');
  return NotifyDriver(static_cast<int32_t>(KAVIPS_LOAD_POLICY), path.data(),
                      static_cast<uint32_t>(path.size()), kLoadTimeoutMs);
}

// The driver's reason for its last refusal; empty when it gives none.
STRING refusalText() {
  std::array<char, KAVIPS_REFUSAL_BYTES> reply{};
  const int32_t result = NotifyDriver(static_cast<int32_t>(KAVIPS_QUERY_REFUSAL), reply.data(),
                                      reply.size(), kRefusalTimeoutMs);
  if (result != NotifyResult::completed) return STRING();
  return textField(reply.data() + KAVIPS_REFUSAL_TEXT_OFFSET, KAVIPS_REFUSAL_TEXT_BYTES);
}

bool rebootOutstanding() {
  AgentConfig* config = AgentConfig::getInstance();
  return config->isIPSEnabled() && !config->isIPSRebootDone();
}

bool driverExpected() {
  AgentConfig* config = AgentConfig::getInstance();
  return config->isIPSEnabled() && config->isIPSRebootDone();
}

uint64_t now() {
  return static_cast<uint64_t>(platform::current().clock.wallMs());
}

bool isOn(const STRING& flag) {
  return !flag.empty() && flag != STRING(kFlagOff);
}

// The text of a parameter, empty when it is missing.
bool readParameter(const char* name, STRING& value) {
  value.clear();
  const uint32_t error = platform::current().registry.readString(kDriverParametersKey, name, value);
  return error == platform::kOk || error == platform::kErrorFileNotFound;
}

}  // namespace

struct DriverConfig::PolicyChange {
  STRING file;
  STRING oldFile;
  bool builtInBefore = false;
  STRING refusal;  // the driver's own text
  STRING message;  // of the last step that failed
};

int DriverConfig::newPolicy(const STRING& file) {
  STRING unused;
  return newPolicy(file, unused);
}

int DriverConfig::newPolicy(const STRING& file, STRING& message) {
  eventlog::trace(kNewPolicyTag, "ChangePolicy: minus=%s", file);
  PolicyChange change;
  change.file = file;
  const int result = file.empty() ? kNoFileName : changePolicy(change);
  if (result == 0) return result;
  if (result == kRegistryError) {
    eventlog::trace(kNewPolicyTag, "E_AGENT_REGISTRY ret from updateDriverConfig");
    message = change.message;
  } else if (result == NotifyResult::notOpened) {
    fail("IPS Driver is not loaded. Failed to apply translated policy", message);
  } else {
    fail(change.refusal.empty() ? STRING("Driver failed to load new policy") : change.refusal,
         message);
  }
  return result;
}

int DriverConfig::changePolicy(PolicyChange& change) {
  // No recorded policy yet is not a failure, so the value is read past the error message.
  ignoreResult(platform::current().registry.readString(kDriverParametersKey, kFilterFileValue,
                                                       change.oldFile));
  change.builtInBefore = builtInInForce();
  if (const int error = writeParameter(useBuiltin, kFlagOff, change.message); error != 0) {
    eventlog::trace(kNewPolicyTag, "Error ret from updateDriverConfig 1");
    return error;
  }
  const int32_t result = loadPolicy(change.file);
  if (result == NotifyResult::completed) return recordLoaded(change);
  if (result == NotifyResult::notOpened && rebootOutstanding()) return recordForReboot(change);
  return giveUp(result, change);
}

int DriverConfig::recordForReboot(PolicyChange& change) {
  if (const int error = writeParameter(filterFile, change.file, change.message)) return error;
  eventlog::trace(kNewPolicyTag, "Applied the new policy. Unable to open the driver");
  // The date is for those who look at it; the policy is recorded without it.
  ignoreResult(setPolApplicationDate(now()));
  return 0;
}

int DriverConfig::recordLoaded(PolicyChange& change) {
  const int error = writeParameter(filterFile, change.file, change.message);
  if (error == 0) {
    // As above.
    ignoreResult(setPolApplicationDate(now()));
    return 0;
  }
  eventlog::trace(kNewPolicyTag, "Error ret from updateDriverConfig 2");
  eventlog::trace(kNewPolicyTag, "Reverting to old policy");
  if (loadPolicy(change.oldFile) != NotifyResult::completed) {
    eventlog::trace(kNewPolicyTag, "Driver failed  to load the old policy");
    fail("Driver failed  to load the old policy", change.message);
  }
  return error;
}

bool DriverConfig::policySetting(PolicySetting& out) {
  STRING flag;
  if (!readParameter(kFilterFileValue, out.filterFile) || !readParameter(kUseBuiltinValue, flag))
    return false;
  out.builtIn = builtInInForce();
  return true;
}

int DriverConfig::restorePolicySetting(const PolicySetting& setting) {
  constexpr char tag[] = "DriverConfig::restorePolicySetting()";
  eventlog::trace(tag, "Restoring the policy '%s', built-in: %d", setting.filterFile,
                  setting.builtIn);
  STRING flag;
  STRING file;
  if (!readParameter(kUseBuiltinValue, flag) || isOn(flag) != setting.builtIn) {
    if (const int error = updateDriverConfig(useBuiltin, setting.builtIn ? kFlagOn : kFlagOff))
      return error;
  }
  if (!readParameter(kFilterFileValue, file) || file != setting.filterFile) {
    if (const int error = updateDriverConfig(filterFile, setting.filterFile)) return error;
  }
  int32_t result = NotifyResult::completed;
  if (setting.builtIn)
    result =
        NotifyDriver(static_cast<int32_t>(KAVIPS_USE_BUILTIN), nullptr, 0, kUseBuiltInTimeoutMs);
  else if (!setting.filterFile.empty())
    result = loadPolicy(setting.filterFile);
  // Somebody else may have the device for a moment; only a driver that is not to be there is let off.
  if (result == NotifyResult::notOpened && !driverExpected()) return 0;
  if (result != 0) eventlog::trace(tag, "The driver did not accept it: %d", result);
  return result;
}

int DriverConfig::giveUp(int result, PolicyChange& change) {
  if (result == NotifyResult::finishedWithError) change.refusal = refusalText();
  eventlog::trace(kNewPolicyTag, result == NotifyResult::notOpened
                                     ? "Applying new policy failed. Unable to open the driver"
                                     : "Applying policy failed.");
  if (!change.builtInBefore) return result;
  eventlog::trace(kNewPolicyTag, "Restoring buitlin flag: %d", change.builtInBefore);
  if (const int error = updateDriverConfig(useBuiltin, kFlagOn); error != 0)
    eventlog::trace(kNewPolicyTag, "Failed to restore builtin flag! [%d]", error);
  return result;
}

}  // namespace korvane
