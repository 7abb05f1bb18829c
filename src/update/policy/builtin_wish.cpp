#include "update/policy/builtin_wish.h"

#include "config/agent_config.h"
#include "config/setting_check.h"
#include "driver/driver_config.h"
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
void recordBuiltIn() {
  STRING flag;
  if (DriverConfig::getDriverConfig(DriverConfig::useBuiltin, flag) != 0 || flag != STRING(kFlagOn))
    ignoreResult(DriverConfig::updateDriverConfig(DriverConfig::useBuiltin, kFlagOn));
}

// A refused wish is recorded all the same, and a driver may do what it did not answer. What cannot be put back
// is traced where it fails; the refusal is told already.
void putBack(const DriverConfig::PolicySetting& former) {
  if (DriverConfig::usingBuiltIn() != former.builtIn)
    ignoreResult(DriverConfig::restorePolicySetting(former));
  else
    ignoreResult(DriverConfig::updateDriverConfig(DriverConfig::useBuiltin,
                                                  former.builtIn ? kFlagOn : kFlagOff));
}

STRING tell(bool builtIn) {
  if (builtIn == DriverConfig::usingBuiltIn()) {
    if (builtIn) recordBuiltIn();
    return {};
  }
  DriverConfig::PolicySetting former;
  const bool known = DriverConfig::policySetting(former);
  // Without a policy there is nothing to go back to, and nothing wrong.
  if (!builtIn && known && former.filterFile.empty()) return {};
  const int result =
      builtIn ? DriverConfig::useBuiltIn() : DriverConfig::newPolicy(former.filterFile);
  if (result == 0) return {};
  const STRING problem = DriverConfig::getErrorMessage();
  if (known) putBack(former);
  return problem;
}

}  // namespace

STRING followBuiltInWish(const PropertyList& settings) {
  const STRING* wish = wishIn(settings);
  return wish ? tell(wish->toBool()) : STRING();
}

STRING BuiltInWish::follow(PropertyList& settings) {
  const STRING* wish = wishIn(settings);
  if (!wish) return {};
  const bool wanted = wish->toBool();
  forget();
  const STRING problem = tell(wanted);
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
  if (!tell(*_wanted).empty()) return;
  AgentConfig::getInstance()->setUseBuiltInPolicy(*_wanted);
  eventlog::event(EventId::builtInPolicyApplied, kWishTag, {STRING::fromBool(*_wanted)});
  forget();
}

}  // namespace korvane
