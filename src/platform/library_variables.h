// The variables of the environment by which anybody who starts a program of ours would have OpenSSL
// or libcurl load a module, read a configuration, trust an authority or write down the secrets of a
// session. The programs remove them before anything else; what the system's own configuration files
// say stays in force.
//
//   for (const char* name : platform::kLibraryVariables) unsetenv(name);
#pragma once

namespace korvane::platform {

inline constexpr const char* kLibraryVariables[] = {
    "OPENSSL_CONF",  "OPENSSL_CONF_INCLUDE", "OPENSSL_MODULES", "OPENSSL_ENGINES",
    "SSL_CERT_FILE", "SSL_CERT_DIR",         "SSLKEYLOGFILE",   "CTLOG_FILE"};

}  // namespace korvane::platform
