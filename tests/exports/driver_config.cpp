#include <cstdint>

#include "outside.h"

using namespace korvane;

// No driver is there: its requests end with 2, its settings are in the registry all the same.
void useDriverConfig(const STRING& folder) {
  const STRING policy = folder + text("policy.conf");
  STRING value, name, version, id;
  const auto key = [](int number) { return static_cast<DriverConfig::RegKey>(number); };

  expect(DriverConfig::updateDriverConfig(key(2), policy) == 0 &&
             DriverConfig::getDriverConfig(key(2), value) == 0 && value == policy,
         "a parameter that was written is read again");
  const STRING minus = DriverConfig::getMinusFile();
  expect(minus == policy, "the translated policy is the filter file");
  const STRING driverLog = DriverConfig::getDriverLog(), profileLog = DriverConfig::getProfileLog();
  expect(driverLog == text("") && profileLog == text(""), "no log was ever set");

  const STRING parameters = text("System\\CurrentControlSet\\Services\\KAVIPSDriver\\Parameters");
  expect(DriverConfig::setDWord(parameters, text("Number"), 7) == 0,
         "an existing key takes a number");
  expect(DriverConfig::setDWord(text("System\\NoSuchKey"), text("Number"), 7) == 2 &&
             DriverConfig::setDWordIfKeyExists(text("System\\NoSuchKey"), text("Number"), 7) == 0,
         "a missing key is an error, or none");
  const int started = DriverConfig::StartDriver(), stopped = DriverConfig::StopDriver();
  expect((started == 0 || started == 7) && (stopped == 0 || stopped == 7),
         "the services' start value");

  const std::uint64_t date = 0x0123456789abcdefULL;
  DriverConfig::setPolApplicationDate(date);
  expect(DriverConfig::getPolApplicationDate() == date, "the date reads back unchanged");

  expect(DriverConfig::newPolicy(policy) == 2 || DriverConfig::newPolicy(policy) == 0, "no driver");
  expect(DriverConfig::useBuiltIn() == 2, "no driver to be told of its built-in policy");
  expect(DriverConfig::getErrorMessage() == text("Failed to tell Driver to use Builtin Policy"),
         "the last failure's text");
  expect(!DriverConfig::usingBuiltIn() && !DriverConfig::queryPolicy(name, version, id),
         "no answer");
  expect(DriverConfig::rollDriverLog(policy) == 2 && DriverConfig::rollProfileLog(policy) == 2,
         "no driver to roll its logs");
  std::vector<char> room(4096);
  expect(DriverConfig::processdump(reinterpret_cast<KorvaneProcessSnapshot*>(room.data()),
                                   static_cast<int>(room.size())) == 2 &&
             DriverConfig::psetsnapshot(reinterpret_cast<KorvanePsetSnapshot*>(room.data()),
                                        static_cast<int>(room.size())) == 2,
         "no driver to take a snapshot");
  const std::int32_t result =
      NotifyDriver(static_cast<std::int32_t>(0x80004018u), room.data(), 1028u, 5000u);
  expect(result == 2, "the device cannot be opened");
}
