// Whether a value can stand under a key of agent.ini. Pure functions.
#pragma once

#include <string>
#include <vector>

#include "config/settings_table.h"

namespace korvane::agentctl {

struct ValueFault {
  bool refused = false;  // it cannot be a value of the key; otherwise it can, and is hardly meant
  std::string text;      // names the key; empty: nothing is wrong
};

// `key`: one of the table, or any other.
ValueFault checkValue(const STRING& key, const STRING& value);

// All key names of the table, and its sections with [Other] and [Checksum].
const std::vector<std::string>& keyNames();
const std::vector<std::string>& sectionNames();

}  // namespace korvane::agentctl
