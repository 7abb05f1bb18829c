#include "update/prevention_state.h"

#include "eventlog/event_log.h"
#include "platform/error_codes.h"
#include "platform/registry.h"

namespace korvane {
namespace {

constexpr char kPreventionTag[] = "UpdateThread";
constexpr char kTestKey[] =
    "Software\\Dalvora\\Intrusion Security\\agent\\IPS\\TestForPrevention\\";

constexpr int kIpsEnabled = 0x400;
constexpr int kIpsDisabled = 0x200;
constexpr int kRebootsDone = 0x800;
constexpr int kRebootPending = 0x1000;
constexpr int kFimRebootPending = 0x20000;  // from here on the text already speaks of the reboot

PreventionReport describeFim(const PreventionSettings& settings) {
  if (settings.fimEnabled && settings.fimRebootDone) return {};
  PreventionReport report;
  if (settings.fimEnabled) {
    report = {0x29000, "RTFIM Enabled. "};
  } else {
    report = {settings.fimRebootDone ? 0x14000 : 0x25000, "RTFIM Disabled. "};
  }
  if (!settings.fimRebootDone) report.text += "This setting will take effect after the reboot. ";
  return report;
}

}  // namespace

PreventionReport describePrevention(const PreventionSettings& settings) {
  PreventionReport report = describeFim(settings);
  const int fim = report.code;
  report.text += settings.ipsEnabled ? "IPS Enabled. " : "IPS Disabled. ";
  report.code |= settings.ipsEnabled ? kIpsEnabled : kIpsDisabled;
  if (settings.ipsRebootDone && settings.fimRebootDone) {
    report.code |= kRebootsDone;
    return report;
  }
  report.code |= kRebootPending;
  if (fim < kFimRebootPending) report.text += "This setting will take effect after the reboot.";
  return report;
}

PreventionTest testPrevention(platform::Registry& registry) {
  const uint32_t error = registry.createKey(kTestKey);
  if (error == platform::kOk) return PreventionTest::keyMade;
  if (error == platform::kErrorAccessDenied) {
    eventlog::trace(kPreventionTag, "::monitorPrevention Registry Access denied");
    return PreventionTest::refused;
  }
  eventlog::trace(kPreventionTag, "::monitorPrevention Registry Error %d", error);
  return PreventionTest::failed;
}

}  // namespace korvane
