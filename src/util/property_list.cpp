#include "util/property_list.h"

#include <algorithm>

namespace korvane {

const STRING* findProperty(const PropertyList& list, const STRING& name) {
  const auto found =
      std::find_if(list.begin(), list.end(), [&](const Property& p) { return p.first == name; });
  return found == list.end() ? nullptr : &found->second;
}

STRING propertyValue(const PropertyList& list, const STRING& name) {
  const STRING* value = findProperty(list, name);
  return value ? *value : STRING();
}

bool propertyIsTrue(const PropertyList& list, const STRING& name) {
  const STRING* value = findProperty(list, name);
  return value && *value == u"true";
}

}  // namespace korvane
