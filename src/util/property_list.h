// An ordered list of (name, value) pairs: settings, message properties and record fields travel in
// it between the rooms. Names may repeat; the first one counts.
#pragma once

#include <utility>
#include <vector>

#include "util/string.h"

namespace korvane {

using Property = std::pair<STRING, STRING>;
using PropertyList = std::vector<Property>;

// The value of the first pair with exactly this name, or null; owned by the list.
const STRING* findProperty(const PropertyList& list, const STRING& name);

// The value of the first pair with exactly this name, or an empty text.
STRING propertyValue(const PropertyList& list, const STRING& name);

// True when the first pair with this name has exactly the value "true".
bool propertyIsTrue(const PropertyList& list, const STRING& name);

}  // namespace korvane
