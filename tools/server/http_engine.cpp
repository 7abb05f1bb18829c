#include "tools/server/http_engine.h"

namespace korvane::server {

namespace {

thread_local Connection* currentConnection = nullptr;

}  // namespace

HttpEngine::HttpEngine() {
  set_keep_alive_timeout(std::chrono::duration_cast<std::chrono::seconds>(kIdleLimit).count());
  set_keep_alive_max_count(1'000'000);
}

bool HttpEngine::serveOne(Connection& connection) {
  currentConnection = &connection;
  bool closed = false;
  const bool done = process_request(connection, false, closed, nullptr);
  currentConnection = nullptr;
  return done && !closed && connection.intact();
}

Connection& HttpEngine::current() {
  return *currentConnection;
}

}  // namespace korvane::server
