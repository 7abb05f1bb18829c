// Loads and unloads kavips.sys, the stand-in driver, and makes what a driver's installation
// leaves in the registry: the service "KAVIPSDriver" with its parameters, and the keys of
// the two filters with their start values. Also the key of the prevention self-test, which
// the stand-in cannot refuse by itself.
//
// Windows only. One driver at a time and machine; the caller sees to that. Threads: any,
// one at a time.
// Errors: an empty text is success, otherwise it tells what failed, on what, and the
// system's number.
//
//   std::string problem = kavips::loadDriver("C:\\korvane\\kavips.sys");
//   ... kavips::unloadDriver(); kavips::removeDriver();
#pragma once

#include <string>

namespace korvane::kavips {

inline constexpr char kStandInText[] =
    "kavips.sys is a stand-in for the driver: it answers the agent and enforces nothing.";

// Registers the driver where it is not registered yet, or with another file, and starts it when it
// does not run. Parameters that are there stay.
std::string loadDriver(const std::string& sysFile);
// Stops it; its settings stay. One that does not run is fine.
std::string unloadDriver();
// Stops it and removes the service and every key that loadDriver made.
std::string removeDriver();

// Whether prevention is in force, as far as its self-test can see: with `on` the test key exists
// with an access list that lets nobody open it, without it does not exist.
std::string setPrevention(bool on);

// Sends a command to the loaded driver and gives its state as JSON in `reply`.
std::string command(const std::string& words, std::string& reply);

}  // namespace korvane::kavips
