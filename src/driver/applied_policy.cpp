// DriverConfig's operations on the policy in force.
#include <array>

#include "driver/driver_config.h"
#include "driver/driver_values.h"
#include "driver/notify_driver.h"
#include "eventlog/event_log.h"
#include "platform/platform.h"
#include "platform/registry.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr uint32_t kQueryTimeoutMs = 5000;

uint32_t numberField(const char* bytes) {
  uint32_t number = 0;
  for (size_t i = 0; i < 4; ++i)
    number |= static_cast<uint32_t>(static_cast<unsigned char>(bytes[i])) << (8 * i);
  return number;
}

}  // namespace

struct DriverConfig::AppliedPolicy {
  int32_t builtIn = 0;
  STRING name;
  STRING version;
  STRING id;
};

int32_t DriverConfig::readAppliedPolicy(AppliedPolicy& policy) {
  std::array<char, KAVIPS_POLICY_RECORD_BYTES> record{};
  const int32_t result = NotifyDriver(static_cast<int32_t>(KAVIPS_QUERY_POLICY), record.data(),
                                      record.size(), kQueryTimeoutMs);
  if (result != NotifyResult::completed) return result;
  policy.builtIn = static_cast<int32_t>(numberField(record.data()));
  policy.name = textField(&record[KAVIPS_POLICY_NAME_OFFSET], KAVIPS_POLICY_NAME_BYTES);
  policy.version = textField(&record[KAVIPS_POLICY_VERSION_OFFSET], KAVIPS_POLICY_VERSION_BYTES);
  policy.id = textField(&record[KAVIPS_POLICY_ID_OFFSET], KAVIPS_POLICY_ID_BYTES);
  return result;
}

int DriverConfig::useBuiltIn() {
  STRING unused;
  return useBuiltIn(unused);
}

int DriverConfig::useBuiltIn(STRING& message) {
  constexpr char tag[] = "DriverConfig::useBuiltIn()";
  Synchronized hold(shared().builtInLock);
  eventlog::trace(tag, "Setting builtin policy.");
  const int32_t asked =
      NotifyDriver(static_cast<int32_t>(KAVIPS_USE_BUILTIN), nullptr, 0, kUseBuiltInTimeoutMs);
  const int recorded = writeParameter(useBuiltin, kFlagOn, message);
  if (asked == NotifyResult::completed) return recorded;
  fail("Failed to tell Driver to use Builtin Policy", message);
  return asked;
}

bool DriverConfig::usingBuiltIn() {
  constexpr char tag[] = "DriverConfig::usingBuiltIn()";
  Synchronized hold(shared().builtInLock);
  eventlog::trace(tag, "Querying policy.");
  AppliedPolicy policy;
  if (readAppliedPolicy(policy) != NotifyResult::completed) {
    STRING unused;
    fail("Failed to get info on Builtin Policy", unused);
    return false;
  }
  eventlog::trace(tag, "Builtin: %d", policy.builtIn);
  eventlog::trace(tag, "Name: %ls", policy.name);
  eventlog::trace(tag, "Version: %ls", policy.version);
  eventlog::trace(tag, "ID = %ls", policy.id);
  return policy.builtIn != 0;
}

bool DriverConfig::queryPolicy(STRING& name, STRING& version, STRING& id) {
  STRING unused;
  return queryPolicy(name, version, id, unused);
}

bool DriverConfig::queryPolicy(STRING& name, STRING& version, STRING& id, STRING& message) {
  constexpr char tag[] = "DriverConfig::queryPolicy()";
  eventlog::trace(tag, "Querying policy.");
  AppliedPolicy policy;
  if (readAppliedPolicy(policy) != NotifyResult::completed) {
    fail("Failed to get info on applied Policy", message);
    return false;
  }
  eventlog::trace(tag, "Builtin = %d", policy.builtIn);
  eventlog::trace(tag, "Name = %s", policy.name);
  eventlog::trace(tag, "Version = %s", policy.version);
  eventlog::trace(tag, "ID = %s", policy.id);
  name = policy.name;
  version = policy.version;
  id = policy.id;
  return true;
}

bool DriverConfig::builtInInForce() {
  STRING flag;
  // A flag that cannot be read leaves the driver to be asked.
  ignoreResult(
      platform::current().registry.readString(kDriverParametersKey, kUseBuiltinValue, flag));
  if (!flag.empty() && flag != STRING(kFlagOff)) return true;
  Synchronized hold(shared().builtInLock);
  AppliedPolicy policy;
  return readAppliedPolicy(policy) == NotifyResult::completed && policy.builtIn != 0;
}

}  // namespace korvane
