#include "update/policy/builtin_policy_switch.h"

#include "config/policy_settings.h"
#include "config/setting_check.h"
#include "driver/driver.h"
#include "driver/driver_values.h"
#include "eventlog/event_log.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kKey[] = "use.builtin.policy";
constexpr char kTag[] = "BuiltInPolicySwitch";

// A value that is none is the store's to refuse.
const STRING* requestedIn(const PropertyList& settings) {
  const STRING* request = findProperty(settings, kKey);
  return request && settingFault(kKey, *request).empty() ? request : nullptr;
}

// The driver of its own accord is on it; its next start is to find it recorded.
void recordBuiltIn(Driver& driver) {
  STRING flag;
  if (!driver.readValue(kUseBuiltinValue, flag).ok() || flag != STRING(kFlagOn))
    ignoreResult(driver.writeValue(kUseBuiltinValue, kFlagOn));
}

// A refused request is recorded all the same, and a driver may do what it did not answer. What cannot
// be put back is traced where it fails; the refusal is told already.
void putBack(Driver& driver, const PolicySetting& former) {
  if (driver.usingBuiltIn() != former.builtIn)
    ignoreResult(driver.restorePolicySetting(former));
  else
    ignoreResult(driver.writeValue(kUseBuiltinValue, former.builtIn ? kFlagOn : kFlagOff));
}

STRING tell(Driver& driver, bool builtIn) {
  const bool inForce = driver.usingBuiltIn();
  if (builtIn == inForce) {
    if (builtIn) recordBuiltIn(driver);
    return {};
  }
  PolicySetting former;
  const bool known = driver.recordedSetting(former);
  former.builtIn = former.builtIn || inForce;
  // Without a policy there is nothing to go back to, and nothing wrong.
  if (!builtIn && known && former.filterFile.empty()) return {};
  const DriverResult told =
      builtIn ? driver.useBuiltIn() : driver.newPolicy(former.filterFile, former);
  if (!told.ok() && known) putBack(driver, former);
  return told.text;
}

}  // namespace

STRING applyBuiltInSetting(Driver& driver, const PropertyList& settings) {
  const STRING* request = requestedIn(settings);
  return request ? tell(driver, request->toBool()) : STRING();
}

STRING BuiltInPolicySwitch::follow(PropertyList& settings) {
  const STRING* request = requestedIn(settings);
  if (!request) return {};
  const bool wanted = request->toBool();
  forget();
  const STRING problem = tell(_driver, wanted);
  if (problem.empty()) return {};
  eventlog::event(EventId::builtInPolicyRefused, kTag, {STRING::fromBool(wanted), problem});
  std::erase_if(settings, [](const Property& pair) { return pair.first == STRING(kKey); });
  _wanted = wanted;
  _pause = kPauseCycles;
  return problem;
}

void BuiltInPolicySwitch::step(bool enforceable) {
  if (!_wanted || !enforceable || --_pause > 0) return;
  _pause = kPauseCycles;
  if (!tell(_driver, *_wanted).empty()) return;
  _policy.setUseBuiltInPolicy(*_wanted);
  eventlog::event(EventId::builtInPolicyApplied, kTag, {STRING::fromBool(*_wanted)});
  forget();
}

}  // namespace korvane
