// The kernel driver: its settings in the registry, its services, and the requests to its device.
//
// One for each run of an agent; currentDriver() is the calling thread's. Threads: any thread may
// call anything. startServices and stopServices exclude each other, and so do useBuiltIn and
// usingBuiltIn; an operation that asks the driver blocks for up to the time-out of its request
// (driver_protocol.h and docs/file-formats.md), which a stop of the agent cuts short.
// Errors: each result has its code and its text together. Nothing is retried here. The agent's log
// gets 10112 for the first failed opening of a run of them and 10400 for the first one that works
// again, 10116 to 10119 for the rest of a request's failures.
//
//   AppliedPolicy policy;
//   if (const DriverResult asked = driver.queryPolicy(policy); !asked.ok()) report(asked.text);
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>

#include "agent/thread/locks.h"
#include "driver/driver_result.h"
#include "platform/fwd.h"
#include "util/string.h"

namespace korvane {

class StopToken;

// What the driver says of the policy in force.
struct AppliedPolicy {
  int32_t builtIn = 0;  // not 0: it is the built-in one
  STRING name;
  STRING version;
  STRING id;
};

// What the driver is set to, as far as it can be put back.
struct PolicySetting {
  STRING filterFile;     // empty: no policy has been loaded yet
  bool builtIn = false;  // the built-in policy is in force

  friend bool operator==(const PolicySetting&, const PolicySetting&) = default;
};

class Driver {
 public:
  enum class Prevention { off, awaitsReboot, on };

  // All of them outlive the driver.
  struct Parts {
    platform::Registry& registry;
    platform::Devices& devices;
    platform::SystemInfo& systemInfo;
    platform::Clock& clock;
    StopToken& stop;
    // Whether the driver is to be there.
    std::function<Prevention()> prevention;
    // Is told the text of each failure, also of one that its operation goes on after.
    std::function<void(const STRING&)> failed;
  };

  explicit Driver(Parts parts);
  Driver(const Driver&) = delete;
  Driver& operator=(const Driver&) = delete;

  // Set the start values of the driver's services for the next start of the system. On systems with
  // the network filter (Windows NT 6.0 and later) that service goes along, else the TCP filter; one
  // that is not installed is skipped.
  DriverResult startServices();
  DriverResult stopServices();

  // A value of the driver's parameters key (driver_values.h); there is none without a name.
  DriverResult readValue(const char* name, STRING& value);
  DriverResult writeValue(const char* name, const STRING& value);
  // Sets a number below HKEY_LOCAL_MACHINE; the result is the registry's error.
  [[nodiscard]] uint32_t setDWord(const STRING& subkey, const STRING& name, uint32_t value);
  // The translated policy that is recorded; empty when it cannot be read.
  STRING minusFile();
  // What its parameters say, empty and 0 where they say nothing; no failure is kept.
  struct Recorded {
    STRING log;
    STRING profileLog;
    int64_t policySinceMs = 0;  // when its policy was loaded; milliseconds since 1970-01-01 UTC
  };
  Recorded recorded();
  // Milliseconds since 1970-01-01 UTC; 0 when nothing, or no number, is recorded.
  uint64_t applicationDate();
  DriverResult setApplicationDate(uint64_t value);

  // Loads a translated policy (a full path) into the driver and records it. A refused one leaves
  // the driver and its settings as they were. A driver that waits for its first reboot finds the
  // file recorded when it starts, which counts as success.
  // former: what the driver is set to, from a caller who knows; otherwise it is asked.
  DriverResult newPolicy(const STRING& file, std::optional<PolicySetting> former = std::nullopt);
  // False when the registry cannot be read, which a missing value does not make it. The driver is
  // asked when the registry does not say that the built-in policy is in force.
  [[nodiscard]] bool policySetting(PolicySetting& out);
  // The same as the registry has it; the driver is not asked.
  [[nodiscard]] bool recordedSetting(PolicySetting& out);
  // Puts registry and driver back to a setting. The driver is told also when it may never
  // have left it. A driver that is off, or waits for its first reboot, finds everything in
  // the registry when it starts.
  DriverResult restorePolicySetting(const PolicySetting& setting);
  // Tells the driver to fall back to its built-in policy, and records that whatever it answers.
  DriverResult useBuiltIn();
  // Ask for the policy in force; a failure leaves `policy` as it is. They differ in their texts,
  // and in that the first waits for a fall-back under way.
  DriverResult usingBuiltIn(AppliedPolicy& policy);
  DriverResult queryPolicy(AppliedPolicy& policy);
  // False also when the driver cannot be asked.
  [[nodiscard]] bool usingBuiltIn();

  // Point the driver at a new log file (a full path).
  DriverResult rollLog(const STRING& newFile);
  DriverResult rollProfileLog(const STRING& newFile);

  // Sends a control request and gives a NotifyResult. The codes that ask something fill the buffer,
  // loading a policy sends it, and any other code ignores it. The device is opened afresh for every
  // request and closed after it. A request that is given up goes on owning its buffers until the
  // driver is done with them; the caller's buffer is free when the call returns. No lock is held.
  [[nodiscard]] int32_t request(uint32_t code, std::span<std::byte> buffer, uint32_t timeoutMs);

 private:
  struct PolicyLoading;

  DriverResult fail(int code, const STRING& text);

  DriverResult setServiceStarts(uint32_t driver, uint32_t networkFilter, uint32_t tcpFilter);
  DriverResult setServiceStart(const STRING& service, uint32_t value, bool mayBeMissing);
  DriverResult pointAt(const char* value, const STRING& newFile, uint32_t code);
  // The text of a parameter, empty when it is missing.
  [[nodiscard]] bool readParameter(const char* name, STRING& value);

  [[nodiscard]] std::unique_ptr<platform::Device> open();
  [[nodiscard]] int32_t send(platform::DeviceRequest& request, std::span<std::byte> reply,
                             uint32_t timeoutMs);
  [[nodiscard]] int32_t waitFor(platform::DeviceRequest& request, std::span<std::byte> reply,
                                uint32_t timeoutMs);
  [[nodiscard]] int32_t loadPolicy(const STRING& file);
  STRING refusalText();
  [[nodiscard]] int32_t readAppliedPolicy(AppliedPolicy& policy);
  bool hasBuiltIn();
  PolicySetting settingNow();

  // The steps of newPolicy.
  DriverResult changePolicy(PolicyLoading& loading);
  DriverResult recordForReboot(const PolicyLoading& loading);
  DriverResult recordLoaded(const PolicyLoading& loading);
  DriverResult giveUp(int result, PolicyLoading& loading);

  const Parts _parts;
  std::atomic<bool> _openingFails{false};  // the last time
  Win32Mutex _servicesLock;
  Win32Mutex _builtInLock;
};

// The current run's, for DriverConfig, NotifyDriver and whoever builds what asks the driver.
Driver& currentDriver();

}  // namespace korvane
