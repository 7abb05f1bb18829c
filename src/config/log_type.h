// The logs that the agent forwards. The numbers are fixed: pointer files and settings know them.
#pragma once

namespace korvane {

enum LogType {
  AGENT_LOG = 0,    // the agent's own log
  HIDS_LOG = 2,     // the IDS component's event file
  HIDS_RT_LOG = 4,  // the IDS component's real-time event file
};

}  // namespace korvane
