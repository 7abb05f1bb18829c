// What the main thread looks after on behalf of those who ask the agent about its driver: the driver's
// logs and the date of its policy in the settings, and requests to restart the machine, which the
// configuration tool leaves there.
//
// One thread. Settings and driver outlive it. Errors: what cannot be read stays as it was.
#pragma once

#include "config/settings.h"
#include "util/string.h"

namespace korvane {

class Driver;

class DriverWatch {
 public:
  DriverWatch(const Settings& settings, Driver& driver) : _settings(settings), _driver(driver) {}

  // Once a second. A request is told when it appears (event 10743) and when it is over (10744); the
  // driver's parameters are read at the first look and at every sixtieth behind it.
  void look();

  static constexpr int kLooksBetween = 60;

 private:
  struct Request {
    const char* purpose;
    bool told = false;
  };
  void tell(Request& request, bool stands);
  void readDriver();

  const Settings _settings;
  Driver& _driver;
  int _looks = 0;
  Request _prevention{"prevention"};
  Request _fileMonitoring{"file integrity monitoring"};
};

}  // namespace korvane
