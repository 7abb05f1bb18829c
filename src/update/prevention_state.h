// Whether prevention is in force, as the code and text that the agent reports to its server. The
// codes are sums of flags that the server knows.
#pragma once

#include "platform/fwd.h"
#include "util/string.h"

namespace korvane {

struct PreventionSettings {
  bool ipsEnabled = false;
  bool ipsRebootDone = false;
  bool fimEnabled = false;  // real-time file integrity monitoring
  bool fimRebootDone = false;
};

struct PreventionReport {
  int code = 0;
  STRING text;
};

// The report for these settings, when the self-test has not found prevention missing.
PreventionReport describePrevention(const PreventionSettings& settings);

// The report of a failed self-test.
inline constexpr int kPreventionDisabledCode = 500;
inline constexpr char kPreventionDisabledText[] = "Prevention Disabled";

// Added to the code once the IDS component's log names have been looked at.
inline constexpr int kIdsLogSearchRead = 0x2000;

// Tries what a driver in force refuses: making a key of the test's own. `failed` is another failure
// than the refusal, which says nothing about the driver.
enum class PreventionTest { refused, keyMade, failed };
[[nodiscard]] PreventionTest testPrevention(platform::Registry& registry);

}  // namespace korvane
