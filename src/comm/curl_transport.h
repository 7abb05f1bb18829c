// The transport over libcurl: one easy handle whose connection stays open from exchange to
// exchange.
//
// Threads: open, close and perform by one thread at a time. A stop (Parts::stop) ends a perform()
// in progress from its own thread: it shuts the handle's sockets, which wakes libcurl at once while
// it connects, negotiates or waits for an answer; during a name look-up libcurl notices within a
// second through the progress callback and leaves the look-up behind.
//
// The progress callback is the only thing that ends a transfer early (code 42): for a stop, when
// the sink refuses, or when memory ran out (then code 27). A URL that is neither https nor, where
// the request allows it, http is refused with code 1; one without a scheme is taken for https.
//
// Peers, a proxy's too, are verified against the request's CA file and nothing else, anew with each
// connection. Names are not compared with the address. What the request's identity asks for is
// looked at before each request goes out, on a kept connection too; a server that is another one is
// refused with code 60. What is seen on the way is in the result's trail.
//
// libcurl's trace and its error texts come without what authenticates somebody (curl_trace.h).
#pragma once

#include <curl/curl.h>

#include <set>
#include <string>

#include "agent/thread/locks.h"
#include "agent/thread/stop_token.h"
#include "comm/tls_observer.h"
#include "comm/transport.h"
#include "platform/fwd.h"

namespace korvane {

class CurlTransport : public Transport {
 public:
  // All of them outlive the transport.
  struct Parts {
    platform::Clock& clock;
    platform::Sockets& sockets;
    StopToken& stop;
  };

  explicit CurlTransport(const Parts& parts) : _parts(parts), _observer(parts.clock) {}
  ~CurlTransport() override;

  bool open() override;
  void close() override;
  bool isOpen() const override { return _easy != nullptr; }
  int perform(const TransportRequest& request, TransportSink& sink,
              TransportResult& result) override;

 private:
  struct Transfer;
  class Options;

  [[nodiscard]] bool prepare(const TransportRequest& request, Transfer& transfer,
                             TransportResult& result);
  [[nodiscard]] bool setOptions(const TransportRequest& request, Transfer& transfer,
                                TransportResult& result);
  static void setTrust(const TransportRequest& request, Options& options);
  [[nodiscard]] int finish(CURLcode code, const Transfer& transfer, TransportResult& result);
  void readTrail(TransferTrail& trail);
  template <class Value>
  Value info(CURLINFO what, Value otherwise);
  void shutSockets();

  static int beforeRequest(void* transfer, char*, char*, int, int);
  static size_t receiveHeader(char* bytes, size_t size, size_t count, void* transfer);
  static size_t receiveBody(char* bytes, size_t size, size_t count, void* transfer);
  static int progress(void* transfer, curl_off_t, curl_off_t, curl_off_t, curl_off_t);
  static int socketOpened(void* self, curl_socket_t socket, curlsocktype purpose);
  static int closeSocket(void* self, curl_socket_t socket);

  const Parts _parts;
  TlsObserver _observer;       // watches until the handle's connections are closed
  bool _libraryReady = false;  // libcurl counts who uses it and ends with the last
  CURL* _easy = nullptr;
  int64_t _begunMs = 0;  // the transfer, on the monotonic clock
  // libcurl keeps a pointer to it for as long as the handle lives.
  char _errorBuffer[CURL_ERROR_SIZE] = {};
  Win32Mutex _socketLock;
  std::set<curl_socket_t> _sockets GUARDED_BY(_socketLock);
};

}  // namespace korvane
