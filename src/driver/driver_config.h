// The current run's Driver (driver/driver.h) as static operations: the registry values, services
// and requests of the kernel driver for whoever is outside of the agent's own rooms.
//
// The class is never instantiated. Threads: any thread may call anything; locks and
// time-outs are the driver's. Errors: 0 is success, kRegistryError a registry failure,
// anything else a NotifyResult. getErrorMessage() gives the text of the last failure in
// this run, from whatever thread and whatever asked the driver; who needs the text of a
// failure of its own asks the Driver, whose results have it.
#pragma once

#include <cstdint>

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

  [[nodiscard]] static int newPolicy(const STRING& file);
  [[nodiscard]] static int useBuiltIn();
  // False also when the driver cannot be asked.
  static bool usingBuiltIn();
  // The policy in force; false, and nothing changed, when the driver cannot be asked.
  [[nodiscard]] static bool queryPolicy(STRING& name, STRING& version, STRING& id);

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
};

}  // namespace korvane
