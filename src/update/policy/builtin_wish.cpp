#include "update/policy/builtin_wish.h"

#include "driver/driver_config.h"
#include "util/ignore_result.h"

namespace korvane {

void followBuiltInWish(const PropertyList& settings) {
  const STRING* wish = findProperty(settings, "use.builtin.policy");
  if (!wish || wish->toBool() == DriverConfig::usingBuiltIn()) return;
  if (wish->toBool())
    // A driver that refuses leaves its policy as it was and has said so in the log.
    ignoreResult(DriverConfig::useBuiltIn());
  else
    ignoreResult(DriverConfig::newPolicy(DriverConfig::getMinusFile()));
}

}  // namespace korvane
