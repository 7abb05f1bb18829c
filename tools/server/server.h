// The whole reference server in one object: database, agent ports, administration port.
//
// Everything listens when the constructor returns and nothing is served before start(). stop() ends
// all connections and threads within a moment; the destructor calls it. Failures throw
// std::exception with a text that names file, address and port.
#pragma once

#include <list>
#include <memory>
#include <string>
#include <vector>

#include "tools/server/admin.h"
#include "tools/server/agent_endpoint.h"
#include "tools/server/listener.h"

namespace korvane::server {

struct ServerOptions {
  std::string dataDirectory;
  std::string certificateFile;
  std::string keyFile;
  std::string servedDirectory;  // empty: "served" in the data directory
  std::string basePath = "/korvane/agent/";
  std::vector<std::string> addresses = {"127.0.0.1"};
  int port = 0;
  int adminPort = 0;
  bool countOnly = false;
};

class Server {
 public:
  explicit Server(const ServerOptions& options);
  ~Server();

  void start();
  void stop();
  int port() const { return _agentListeners.front()->port(); }
  int adminPort() const { return _adminListener.port(); }

 private:
  Listener::Serve serveWith(const TlsContext& certificate);
  int addExtraListener(const std::string& address, int port, const TlsContext& certificate);

  const std::string _servedDirectory;
  const TlsContext _certificate;
  Records _records;
  Misbehaviour _misbehaviour;
  AgentService _service;
  AgentEndpoint _endpoint;
  Admin _admin;
  Mutex _listenersMutex;
  std::vector<std::unique_ptr<Listener>> _agentListeners;
  std::list<Listener> _extraListeners GUARDED_BY(_listenersMutex);
  Listener _adminListener;
};

}  // namespace korvane::server
