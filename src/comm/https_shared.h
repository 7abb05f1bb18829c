// What all handlers of a run share. HttpsHandler alone uses it.
//
// Locks: _commLock is held for the whole of a send, so at most one exchange is on the wire.
// addressLock guards the address for those who only want to name it in a log line, requestLock the
// request for application data that waits to be taken. Order: _commLock, then one of these.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "agent/thread/locks.h"
#include "comm/https_handler.h"
#include "comm/transport.h"
#include "util/string.h"

namespace korvane {

struct HttpsHandler::Shared {
  // libcurl's CURL_SSLVERSION_TLSv1_2 and CURL_SSLVERSION_TLSv1: the lowest version that is
  // accepted.
  static constexpr long kTls12 = 6;
  static constexpr long kTls1 = 1;

  Shared();

  // Asks for the agent's own addresses; true when they differ from the ones known.
  [[nodiscard]] bool populateIPList() REQUIRES(_commLock);
  // Looks at what may have changed when a transfer to `server` failed, and moves on to the
  // next server when nothing has.
  void failOver(const STRING& server) REQUIRES(_commLock);
  [[nodiscard]] bool serverMoved(const STRING& server) REQUIRES(_commLock);
  void useNextServer() REQUIRES(_commLock);
  void reInitializeCurl() REQUIRES(_commLock);
  // The transport, made and opened when there is none.
  Transport& transport() REQUIRES(_commLock);

  // The address in use, looked up when the server is another one than last time.
  void announceServer(const STRING& server);
  void setServerIP(const STRING& server, const STRING& address);
  STRING serverIP();

  Win32Mutex _commLock;
  std::unique_ptr<Transport> _cHandle GUARDED_BY(_commLock);
  bool curlInUse GUARDED_BY(_commLock) = false;
  std::vector<STRING> _ipList GUARDED_BY(_commLock);
  std::function<bool(std::vector<STRING>&)> localAddresses GUARDED_BY(_commLock);

  Win32Mutex addressLock;
  STRING _serverIP GUARDED_BY(addressLock);
  STRING serverOfIP GUARDED_BY(addressLock);

  Win32Mutex requestLock;
  STRING applicationRequest GUARDED_BY(requestLock);

  std::atomic<int> _lastError{0};
  std::atomic<int64_t> _lastFailbackCheck{0};  // seconds, monotonic
  std::atomic<long> CURRENT_CURLOPT_SSLVERSION{kTls12};
};

// The source of the handlers' own events.
inline constexpr char kHandlerSource[] = "HttpsHandler";
// The source of most of their trace lines.
inline constexpr char kSendSource[] = "HttpsHandler::send";

// HTTP statuses above it are errors.
inline constexpr int kOkStatus = 200;

// Seconds of the fail-back clock.
int64_t failbackClock();

// The server in use: the current one, or the configured URL's host without a server list.
STRING serverInUse();

}  // namespace korvane
