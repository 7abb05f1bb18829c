// One accepted connection as the stream that the HTTP engine reads and writes, with or without TLS.
//
// Beside plain transport it can hold back what the engine writes, so that the caller may send
// something else, and it can be broken at once. It owns its socket. One thread uses it. Reads and
// writes end with -1 at a stop, after the time limit, and after breakNow().
#pragma once

#include <httplib.h>
#include <openssl/ssl.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "tools/server/stop_signal.h"
#include "tools/server/tls_context.h"

namespace korvane::server {

class Connection : public httplib::Stream {
 public:
  Connection(int socket, const StopSignal& stop);
  ~Connection() override;

  // Makes the server's side of the handshake; false when the peer gave up or refused the
  // certificate.
  bool startTls(const TlsContext& context);

  // Waits until the peer sends a further request; false when it went away, or the limit or a stop
  // came.
  bool waitForRequest(std::chrono::milliseconds limit);

  // From now on write() keeps the bytes instead of sending them; held() hands them out and ends
  // that.
  void hold() { _holding = true; }
  std::string releaseHeld();

  // From now on read() keeps a copy of the bytes up to the end of the request's head, an empty
  // line; releaseHead() hands it out. Of a head beyond 64 KiB the beginning is kept.
  void recordHead();
  std::string releaseHead();

  // Sends all the bytes; false when they could not be sent. Never held back.
  bool send(std::string_view bytes);

  // Ends the connection with a reset, at once; every later read and write fails.
  void breakNow();
  // The same, but what was sent still arrives; TLS is not closed in order.
  void cutOff() { _broken = true; }
  // Waits; false when a stop ended the wait.
  bool pause(std::chrono::milliseconds length) const { return _stop.pause(length); }
  // Whether every byte written so far could be given to the system.
  bool intact() const { return !_broken; }
  const std::string& localAddress() const { return _localAddress; }

  bool is_readable() const override;
  bool is_writable() const override;
  ssize_t read(char* bytes, size_t size) override;
  ssize_t write(const char* bytes, size_t size) override;
  void get_remote_ip_and_port(std::string& ip, int& port) const override;
  void get_local_ip_and_port(std::string& ip, int& port) const override;
  socket_t socket() const override { return _socket; }

 private:
  void record(std::string_view bytes);
  ssize_t transfer(short events, const std::function<ssize_t()>& step);
  ssize_t tlsStep(int result, short& events) const;

  const int _socket;
  const StopSignal& _stop;
  std::unique_ptr<SSL, void (*)(SSL*)> _tls{nullptr, SSL_free};
  std::string _localAddress;
  std::string _remoteAddress;
  int _localPort = 0;
  int _remotePort = 0;
  std::string _held;
  bool _holding = false;
  std::string _head;
  bool _recordingHead = false;
  bool _broken = false;
};

}  // namespace korvane::server
