// The FIPS switch of the cryptographic library: OpenSSL 3's default properties, which decide from
// which provider every algorithm of the process, TLS included, is fetched.
//
// The switch is made only after the FIPS module of the installation was loaded (fips_module.h) and
// has given a digest, because the library reports success for it even when there is no such
// provider, and can fetch nothing afterwards. Providers once loaded stay loaded. Thread-safe, but
// meant for one caller at a time.
#pragma once

#include "platform/fwd.h"
#include "util/string.h"

namespace korvane {

// True while the default properties ask for FIPS algorithms.
bool fipsModeOn();
// Switches; false, with the library's last error text and the file at fault, when it
// cannot. Nothing has changed then.
[[nodiscard]] bool switchFipsMode(bool on, platform::Files& files,
                                  platform::SharedLibraries& libraries, STRING& error);

}  // namespace korvane
