#include <winsock2.h>
#include <ws2tcpip.h>

#include "tests/comm/hanging_resolver.h"

namespace {

using Function = decltype(&getaddrinfo);

int WSAAPI lookUp(const char* host, const char* service, const addrinfo* hints, addrinfo** result) {
  static const auto next = reinterpret_cast<Function>(
      reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"ws2_32.dll"), "getaddrinfo")));
  if (korvane::tests::HangingResolver::hang(host)) return WSAHOST_NOT_FOUND;
  return next(host, service, hints, result);
}

}  // namespace

// The static libraries call through this pointer, which else comes from the import library.
extern "C" {
extern Function __imp_getaddrinfo;
Function __imp_getaddrinfo = &lookUp;
}
