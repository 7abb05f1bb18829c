// The kernel driver's settings in the registry, its services, and the requests to it: together with
// NotifyDriver the agent's only access to the driver.
//
// All operations are static; the class is never instantiated. Threads: any thread may call
// anything. StartDriver and StopDriver exclude each other, useBuiltIn and usingBuiltIn exclude each
// other; an operation that asks the driver blocks for up to the time-out of its request
// (driver_protocol.h and docs/file-formats.md), which a stop of the agent cuts short.
// Errors: 0 is success, kRegistryError a registry failure, anything else a NotifyResult. Nothing is
// retried here. An operation whose text is reported returns it with its result, in `message`:
// the failure's own, whatever others ask of the driver meanwhile; a success leaves `message` as it is.
// getErrorMessage() gives the text of the last failure in this run, from whatever thread.
//
//   STRING message;
//   if (const int result = DriverConfig::newPolicy(minusFile, message)) report(result, message);
#pragma once

#include <cstdint>

#include "agent/thread/locks.h"
#include "driver/driver_protocol.h"
#include "util/export.h"
#include "util/string.h"

namespace korvane {

class KORVANE_EXPORT DriverConfig {
 public:
  // The values of the driver's parameters key.
  enum RegKey {
    logFile = 0,      // the driver's event log
    profileFile = 1,  // its profile log
    filterFile = 2,   // the translated policy that it loads
    useBuiltin = 3,   // "1": it is to use its built-in policy
    noValue = 4,      // has no name and no value
    enable = 5,
    policyEffectiveDt = 6,  // when the policy in force was applied
  };

  static constexpr int kRegistryError = 7;

  // Set the start values of the driver's services for the next start of the system. On systems with
  // the network filter (Windows NT 6.0 and later) that service goes along, else the TCP filter; one
  // that is not installed is skipped.
  [[nodiscard]] static int StartDriver();
  [[nodiscard]] static int StopDriver();

  [[nodiscard]] static int getDriverConfig(RegKey key, STRING& value);
  [[nodiscard]] static int updateDriverConfig(RegKey key, const STRING& value);
  // Set a number below HKEY_LOCAL_MACHINE; the result is the registry's error. The second form
  // takes a missing key for success.
  [[nodiscard]] static uint32_t setDWord(const STRING& subkey, const STRING& name, uint32_t value);
  [[nodiscard]] static uint32_t setDWordIfKeyExists(const STRING& subkey, const STRING& name,
                                                    uint32_t value);

  // Empty when the value cannot be read.
  static STRING getDriverLog();
  static STRING getProfileLog();
  static STRING getMinusFile();

  // Loads a translated policy (a full path) into the driver and records it. A refused one leaves
  // the driver and its settings as they were. A driver that waits for its first reboot finds the
  // file recorded when it starts, which counts as success.
  [[nodiscard]] static int newPolicy(const STRING& file);
  [[nodiscard]] static int newPolicy(const STRING& file, STRING& message);
  // What the driver is set to, as far as it can be put back.
  struct PolicySetting {
    STRING filterFile;     // empty: no policy has been loaded yet
    bool builtIn = false;  // the built-in policy is in force

    friend bool operator==(const PolicySetting&, const PolicySetting&) = default;
  };
  // False when the registry cannot be read, which a missing value does not make it.
  [[nodiscard]] static bool policySetting(PolicySetting& out);
  // Puts registry and driver back to a setting. The driver is told also when it may never have left it. A
  // driver that is off, or waits for its first reboot, finds everything in the registry when it starts.
  [[nodiscard]] static int restorePolicySetting(const PolicySetting& setting);
  // Tells the driver to fall back to its built-in policy, and records that whatever it answers.
  [[nodiscard]] static int useBuiltIn();
  [[nodiscard]] static int useBuiltIn(STRING& message);
  // False also when the driver cannot be asked.
  static bool usingBuiltIn();
  // The policy in force; false, and nothing changed, when the driver cannot be asked.
  [[nodiscard]] static bool queryPolicy(STRING& name, STRING& version, STRING& id);
  [[nodiscard]] static bool queryPolicy(STRING& name, STRING& version, STRING& id, STRING& message);

  // Point the driver at a new log file (a full path).
  [[nodiscard]] static int rollDriverLog(const STRING& newFile);
  [[nodiscard]] static int rollProfileLog(const STRING& newFile);

  // Milliseconds since 1970-01-01 UTC; 0 when nothing, or no number, is recorded.
  static uint64_t getPolApplicationDate();
  [[nodiscard]] static int setPolApplicationDate(uint64_t value);

  // Fill `buffer` of `bytes` bytes with the driver's records. 8 when there were more than it holds.
  [[nodiscard]] static int processdump(KorvaneProcessSnapshot* buffer, int bytes);
  [[nodiscard]] static int psetsnapshot(KorvanePsetSnapshot* buffer, int bytes);

  static STRING getErrorMessage();

 private:
  struct AppliedPolicy;

  // Makes `text` the failure's own and the last one of the run.
  static void fail(const STRING& text, STRING& message);
  [[nodiscard]] static int writeParameter(RegKey key, const STRING& value, STRING& message);
  [[nodiscard]] static int setServiceStart(const STRING& service, uint32_t value,
                                           bool mayBeMissing);
  [[nodiscard]] static int setServiceStarts(uint32_t driver, uint32_t networkFilter,
                                            uint32_t tcpFilter);
  [[nodiscard]] static int rollLog(RegKey key, const STRING& newFile, uint32_t code);
  [[nodiscard]] static int snapshot(uint32_t code, void* buffer, int bytes);
  [[nodiscard]] static int32_t readAppliedPolicy(AppliedPolicy& policy);

  static bool builtInInForce();

  // The steps of newPolicy.
  struct PolicyChange;
  [[nodiscard]] static int changePolicy(PolicyChange& change);
  [[nodiscard]] static int recordForReboot(PolicyChange& change);
  [[nodiscard]] static int recordLoaded(PolicyChange& change);
  [[nodiscard]] static int giveUp(int result, PolicyChange& change);

  struct Shared {
    Win32Mutex servicesLock;
    Win32Mutex builtInLock;
    Win32Mutex errorLock;
    STRING errorMessage GUARDED_BY(errorLock);
  };
  static Shared& shared();
};

}  // namespace korvane
