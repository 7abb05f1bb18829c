// cpp-httplib's HTTP parsing over the server's own connections. Handlers are set with Get, Post and
// the like before the first connection; serveOne may then be called by many threads at once.
#pragma once

#include <httplib.h>

#include "tools/server/connection.h"

namespace korvane::server {

class HttpEngine : public httplib::Server {
 public:
  HttpEngine();

  // Reads one request and writes its answer; false when the connection is to be closed.
  bool serveOne(Connection& connection);
  // The connection that the calling thread's handler answers on.
  static Connection& current();
};

// How long a connection may stay open without a request.
inline constexpr std::chrono::milliseconds kIdleLimit = std::chrono::minutes(10);

}  // namespace korvane::server
