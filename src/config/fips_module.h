// The FIPS module of the installation: OpenSSL's FIPS provider as a library of its own, and the
// file that says what its bytes must be.
//
// Both are in the installation root, beside the agent library, the only place searched: "fips.dll"
// (on Linux "libfips.so") and "fipsmodule.cnf", whose section [fips_sect] holds the module's
// settings as OpenSSL's fipsinstall writes them. Needed is "module-mac"; without "install-status"
// the module runs all its self-tests at every load, on the machine where it runs. The module checks
// its own file against that value.
//
// Once loaded the module stays until the process ends; a rejected one is unloaded, so that a
// repaired one can be tried. Thread-safe.
#pragma once

#include <string>

#include "platform/fwd.h"

namespace korvane {

// True when the provider "fips" is there. Else `error` names the file and what is wrong with it;
// what the cryptographic library has to say about it is in its error queue.
[[nodiscard]] bool loadFipsModule(platform::Files& files, platform::SharedLibraries& libraries,
                                  std::string& error);

}  // namespace korvane
