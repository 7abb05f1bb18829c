// What the driver says of the policy in force, and its fall-back to the built-in one.
#include <array>
#include <span>

#include "driver/driver.h"
#include "driver/driver_protocol.h"
#include "driver/driver_values.h"
#include "eventlog/event_log.h"

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

int32_t Driver::readAppliedPolicy(AppliedPolicy& policy) {
  std::array<char, KAVIPS_POLICY_RECORD_BYTES> record{};
  const int32_t result =
      request(KAVIPS_QUERY_POLICY, std::as_writable_bytes(std::span(record)), kQueryTimeoutMs);
  if (result != NotifyResult::completed) return result;
  policy.builtIn = static_cast<int32_t>(numberField(record.data()));
  policy.name = textField(&record[KAVIPS_POLICY_NAME_OFFSET], KAVIPS_POLICY_NAME_BYTES);
  policy.version = textField(&record[KAVIPS_POLICY_VERSION_OFFSET], KAVIPS_POLICY_VERSION_BYTES);
  policy.id = textField(&record[KAVIPS_POLICY_ID_OFFSET], KAVIPS_POLICY_ID_BYTES);
  return result;
}

DriverResult Driver::useBuiltIn() {
  Synchronized hold(_builtInLock);
  eventlog::trace("DriverConfig::useBuiltIn()", "Setting builtin policy.");
  const int32_t asked = request(KAVIPS_USE_BUILTIN, {}, kUseBuiltInTimeoutMs);
  DriverResult recorded = writeValue(kUseBuiltinValue, kFlagOn);
  if (asked == NotifyResult::completed) return recorded;
  return fail(asked, "Failed to tell Driver to use Builtin Policy");
}

DriverResult Driver::usingBuiltIn(AppliedPolicy& policy) {
  constexpr char tag[] = "DriverConfig::usingBuiltIn()";
  Synchronized hold(_builtInLock);
  eventlog::trace(tag, "Querying policy.");
  const int32_t asked = readAppliedPolicy(policy);
  if (asked != NotifyResult::completed) return fail(asked, "Failed to get info on Builtin Policy");
  eventlog::trace(tag, "Builtin: %d", policy.builtIn);
  eventlog::trace(tag, "Name: %ls", policy.name);
  eventlog::trace(tag, "Version: %ls", policy.version);
  eventlog::trace(tag, "ID = %ls", policy.id);
  return {};
}

bool Driver::usingBuiltIn() {
  AppliedPolicy policy;
  return usingBuiltIn(policy).ok() && policy.builtIn != 0;
}

DriverResult Driver::queryPolicy(AppliedPolicy& policy) {
  constexpr char tag[] = "DriverConfig::queryPolicy()";
  eventlog::trace(tag, "Querying policy.");
  const int32_t asked = readAppliedPolicy(policy);
  if (asked != NotifyResult::completed) return fail(asked, "Failed to get info on applied Policy");
  eventlog::trace(tag, "Builtin = %d", policy.builtIn);
  eventlog::trace(tag, "Name = %s", policy.name);
  eventlog::trace(tag, "Version = %s", policy.version);
  eventlog::trace(tag, "ID = %s", policy.id);
  return {};
}

bool Driver::hasBuiltIn() {
  Synchronized hold(_builtInLock);
  AppliedPolicy policy;
  return readAppliedPolicy(policy) == NotifyResult::completed && policy.builtIn != 0;
}

}  // namespace korvane
