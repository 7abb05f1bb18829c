#include "driver/driver_config.h"

#include "agent/thread/locks.h"
#include "agent/thread/stop_token.h"
#include "config/agent_config.h"
#include "config/prevention.h"
#include "config/settings.h"
#include "driver/driver.h"
#include "driver/driver_values.h"
#include "driver/notify_driver.h"
#include "eventlog/event_log.h"
#include "platform/error_codes.h"
#include "platform/platform.h"
#include "util/agent_run.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr uint32_t kSnapshotTimeoutMs = 1000;

Driver::Prevention prevention() {
  const PolicySettings& settings = settingsOf(*AgentConfig::getInstance()).policy;
  if (preventionInForce(settings)) return Driver::Prevention::on;
  return preventionAwaitsReboot(settings) ? Driver::Prevention::awaitsReboot
                                          : Driver::Prevention::off;
}

class LastFailure {
 public:
  void set(const STRING& text) {
    Synchronized hold(_lock);
    _text = text;
  }
  STRING get() {
    Synchronized hold(_lock);
    return _text;
  }

 private:
  Win32Mutex _lock;
  STRING _text GUARDED_BY(_lock);
};

// The run's driver, and what the static class keeps of its failures.
struct DriverOfRun {
  LastFailure lastFailure;
  Driver driver;

  explicit DriverOfRun(platform::Platform& system = platform::current())
      : driver({system.registry, system.devices, system.systemInfo, system.clock, shutdownToken(),
                prevention, [this](const STRING& text) { lastFailure.set(text); }}) {}
};

DriverOfRun& ofThisRun() {
  return AgentRun::current().part<DriverOfRun>(RunPart::driver);
}

// The empty name has no value.
const char* valueName(DriverConfig::RegKey key) {
  switch (key) {
    case DriverConfig::logFile:
      return kLogFileValue;
    case DriverConfig::profileFile:
      return kProfileFileValue;
    case DriverConfig::filterFile:
      return kFilterFileValue;
    case DriverConfig::useBuiltin:
      return kUseBuiltinValue;
    case DriverConfig::enable:
      return kEnableValue;
    case DriverConfig::policyEffectiveDt:
      return kPolicyEffectiveDtValue;
    case DriverConfig::noValue:
      break;
  }
  return "";
}

STRING valueOf(DriverConfig::RegKey key) {
  STRING value;
  // An unreadable value is an empty one; the error message has been set.
  ignoreResult(currentDriver().readValue(valueName(key), value));
  return value;
}

int snapshot(uint32_t code, void* buffer, int bytes) {
  eventlog::trace("DriverConfig::psetsnapshot()", "Begin");
  return NotifyDriver(static_cast<int32_t>(code), buffer,
                      bytes > 0 ? static_cast<uint32_t>(bytes) : 0, kSnapshotTimeoutMs);
}

}  // namespace

Driver& currentDriver() {
  return ofThisRun().driver;
}

int DriverConfig::StartDriver() {
  return currentDriver().startServices().code;
}

int DriverConfig::StopDriver() {
  return currentDriver().stopServices().code;
}

int DriverConfig::getDriverConfig(RegKey key, STRING& value) {
  return currentDriver().readValue(valueName(key), value).code;
}

int DriverConfig::updateDriverConfig(RegKey key, const STRING& value) {
  return currentDriver().writeValue(valueName(key), value).code;
}

uint32_t DriverConfig::setDWord(const STRING& subkey, const STRING& name, uint32_t value) {
  return currentDriver().setDWord(subkey, name, value);
}

uint32_t DriverConfig::setDWordIfKeyExists(const STRING& subkey, const STRING& name,
                                           uint32_t value) {
  const uint32_t error = setDWord(subkey, name, value);
  return error == platform::kErrorFileNotFound ? platform::kOk : error;
}

STRING DriverConfig::getDriverLog() {
  return valueOf(logFile);
}

STRING DriverConfig::getProfileLog() {
  return valueOf(profileFile);
}

STRING DriverConfig::getMinusFile() {
  return valueOf(filterFile);
}

int DriverConfig::newPolicy(const STRING& file) {
  return currentDriver().newPolicy(file).code;
}

int DriverConfig::useBuiltIn() {
  return currentDriver().useBuiltIn().code;
}

bool DriverConfig::usingBuiltIn() {
  return currentDriver().usingBuiltIn();
}

bool DriverConfig::queryPolicy(STRING& name, STRING& version, STRING& id) {
  AppliedPolicy policy;
  if (!currentDriver().queryPolicy(policy).ok()) return false;
  name = policy.name;
  version = policy.version;
  id = policy.id;
  return true;
}

int DriverConfig::rollDriverLog(const STRING& newFile) {
  return currentDriver().rollLog(newFile).code;
}

int DriverConfig::rollProfileLog(const STRING& newFile) {
  return currentDriver().rollProfileLog(newFile).code;
}

uint64_t DriverConfig::getPolApplicationDate() {
  return currentDriver().applicationDate();
}

int DriverConfig::setPolApplicationDate(uint64_t value) {
  return currentDriver().setApplicationDate(value).code;
}

int DriverConfig::processdump(KorvaneProcessSnapshot* buffer, int bytes) {
  return snapshot(KAVIPS_PROCESS_SNAPSHOT, buffer, bytes);
}

int DriverConfig::psetsnapshot(KorvanePsetSnapshot* buffer, int bytes) {
  return snapshot(KAVIPS_PSET_SNAPSHOT, buffer, bytes);
}

STRING DriverConfig::getErrorMessage() {
  return ofThisRun().lastFailure.get();
}

}  // namespace korvane
