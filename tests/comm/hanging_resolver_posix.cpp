#include <dlfcn.h>
#include <netdb.h>

#include "tests/comm/hanging_resolver.h"

// Takes the place of the library's for the whole test program.
extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* host,
                                                                  const char* service,
                                                                  const addrinfo* hints,
                                                                  addrinfo** result) {
  using Function = int (*)(const char*, const char*, const addrinfo*, addrinfo**);
  static const auto next = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "getaddrinfo"));
  return korvane::tests::HangingResolver::hang(host) ? EAI_FAIL
                                                     : next(host, service, hints, result);
}
