// Names that belong to the types of logs, and the check of the files that the read pointers name.
// Thread-safe.
#pragma once

#include <string>

#include "platform/fwd.h"

namespace korvane {

// "agent", "hidslog1" or "hidslog1rt"; empty for a type without a pointer file.
const char* logBaseName(int type);
// InstallRoot/IPS/<base name>filepointer; empty for a type without a pointer file.
std::string logPointerPath(int type);
// "AgentLog" for the agent's own log, "No Such Log" for every other number.
const char* logTypeName(int type);
// True when every log that a read pointer names can still be found. A pointer file that is
// missing or damaged names none.
[[nodiscard]] bool walkLogChain(platform::Files& files);

}  // namespace korvane
