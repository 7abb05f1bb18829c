// The short names of the forwarded logs, also the beginnings of their pointer files' names.
#pragma once

#include "config/log_type.h"

namespace korvane {

// "agent", "hidslog1" or "hidslog1rt"; empty for a type without a pointer file.
constexpr const char* logBaseName(LogType type) {
  switch (type) {
    case AGENT_LOG:
      return "agent";
    case HIDS_LOG:
      return "hidslog1";
    case HIDS_RT_LOG:
      return "hidslog1rt";
  }
  return "";
}

}  // namespace korvane
