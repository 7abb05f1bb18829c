#include "update/policy/builtin_wish.h"

#include "driver/driver_config.h"

namespace korvane {

void followBuiltInWish(const PropertyList& settings) {
  const STRING* wish = findProperty(settings, "use.builtin.policy");
  if (!wish || wish->toBool() == DriverConfig::usingBuiltIn()) return;
  if (wish->toBool())
    DriverConfig::useBuiltIn();
  else
    DriverConfig::newPolicy(DriverConfig::getMinusFile());
}

}  // namespace korvane
