// The HTTPS side that agents talk to: TLS, HTTP, the path words, and the faults made on request.
//
// serve() handles one connection from handshake to close on the caller's thread; many threads may
// be in it at once. What it refers to must outlive it.
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "tools/server/agent_service.h"
#include "tools/server/connection.h"
#include "tools/server/http_engine.h"
#include "tools/server/misbehaviour.h"

namespace korvane::server {

class AgentEndpoint {
 public:
  // basePath begins and ends with "/"; a path word follows it.
  AgentEndpoint(AgentService& service, Misbehaviour& misbehaviour, std::string basePath);

  void serve(Connection& connection, const TlsContext& certificate);
  // TLS handshakes completed since the start.
  int64_t handshakes() const { return _handshakes; }

 private:
  struct Exchange;
  bool handshake(Connection& connection, const TlsContext& certificate);
  bool serveRequest(Connection& connection);
  void onPost(const httplib::Request& request, httplib::Response& response,
              const httplib::ContentReader& read);
  void answer(Exchange& exchange, httplib::Response& response);
  bool deliver(Connection& connection, Exchange& exchange, std::string answer);

  AgentService& _service;
  Misbehaviour& _misbehaviour;
  const std::string _basePath;
  std::atomic<int64_t> _handshakes = 0;
  HttpEngine _http;
};

}  // namespace korvane::server
