// Removes a log that has been sent completely.
#pragma once

#include "agent/thread/stop_token.h"
#include "platform/fwd.h"
#include "util/string.h"

namespace korvane {

// Removes the file, trying again after half a second; where it cannot be removed it is renamed to
// "<file>.sent", or "<file>.sent.2" and so on. Each failure is event 10135. True when the name is
// free; a file that is not there counts as removed. A stop cuts the pause short.
[[nodiscard]] bool removeSpentLog(platform::Files& files, const STRING& file, StopToken& stop);

// Renames it at once, for local copies that are to stay. True as above.
[[nodiscard]] bool keepSpentLog(platform::Files& files, const STRING& file);

}  // namespace korvane
