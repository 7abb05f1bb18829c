#include "update/policy/builtin_wish.h"

#include "config/policy_settings.h"
#include "config/setting_check.h"
#include "driver/driver.h"
#include "driver/driver_values.h"
#include "eventlog/event_log.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kKey[] = "use.builtin.policy";
constexpr char kWishTag[] = "BuiltInWish";

// A value that is none is the store's to refuse.
const STRING* wishIn(const PropertyList& settings) {
  const STRING* wish = findProperty(settings, kKey);
  return wish && settingFault(kKey, *wish).empty() ? wish : nullptr;
}

// The driver of its own accord is on it; its next start is to find it recorded.
void recordBuiltIn(Driver& driver) {
  STRING flag;
  if (!driver.readValue(kUseBuiltinValue, flag).ok() || flag != STRING(kFlagOn))
    ignoreResult(driver.writeValue(kUseBuiltinValue, kFlagOn));
}

// A refused wish is recorded all the same, and a driver may do what it did not answer. What cannot
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

STRING followBuiltInWish(Driver& driver, const PropertyList& settings) {
  const STRING* wish = wishIn(settings);
  return wish ? tell(driver, wish->toBool()) : STRING();
}

STRING BuiltInWish::follow(PropertyList& settings) {
  const STRING* wish = wishIn(settings);
  if (!wish) return {};
  const bool wanted = wish->toBool();
  forget();
  const STRING problem = tell(_driver, wanted);
  if (problem.empty()) return {};
  eventlog::event(EventId::builtInPolicyRefused, kWishTag, {STRING::fromBool(wanted), problem});
  std::erase_if(settings, [](const Property& pair) { return pair.first == STRING(kKey); });
  _wanted = wanted;
  _pause = kPauseCycles;
  return problem;
}

void BuiltInWish::step(bool enforceable) {
  if (!_wanted || !enforceable || --_pause > 0) return;
  _pause = kPauseCycles;
  if (!tell(_driver, *_wanted).empty()) return;
  _policy.setUseBuiltInPolicy(*_wanted);
  eventlog::event(EventId::builtInPolicyApplied, kWishTag, {STRING::fromBool(*_wanted)});
  forget();
}

}  // namespace korvane
