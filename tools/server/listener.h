// A listening TCP socket with a thread that accepts and one thread for each connection.
//
// Listening begins in the constructor, so the port is known when it returns; connections are served
// from start() on. The destructor ends everything: the program's StopSignal must have been set
// before, or the listener's own stop() called. `serve` runs on the connection's thread and must
// return soon after a stop. Failures to bind throw std::system_error naming address and port.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "tools/server/connection.h"
#include "tools/server/stop_signal.h"

namespace korvane::server {

class Listener {
 public:
  using Serve = std::function<void(Connection&)>;

  // Port 0 takes a free one. An address is shared with no other process.
  Listener(const std::string& address, int port, Serve serve);
  ~Listener();

  void start();
  void stop();
  const std::string& address() const { return _address; }
  int port() const { return _port; }

 private:
  struct Worker {
    std::thread thread;
    std::atomic<bool> ended = false;
  };

  void acceptConnections();
  void startWorker(int socket);
  void joinEnded(bool all);

  const std::string _address;
  const Serve _serve;
  StopSignal _stop;
  int _socket = -1;
  int _port = 0;
  std::thread _acceptor;
  std::list<Worker> _workers;  // of the acceptor's thread, and of stop() once that has ended
};

}  // namespace korvane::server
