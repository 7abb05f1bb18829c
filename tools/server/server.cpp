#include "tools/server/server.h"

#include <filesystem>

namespace korvane::server {

namespace {

constexpr char kLoopback[] = "127.0.0.1";

std::string madeDirectory(const std::string& path) {
  std::filesystem::create_directories(path);
  return path;
}

}  // namespace

Server::Server(const ServerOptions& options)
    : _servedDirectory(madeDirectory(options.servedDirectory.empty()
                                         ? options.dataDirectory + "/served"
                                         : options.servedDirectory)),
      _certificate(TlsContext::load(options.certificateFile, options.keyFile)),
      _records(madeDirectory(options.dataDirectory) + "/server.db"),
      _service(_records, options.countOnly),
      _endpoint(_service, _misbehaviour, options.basePath),
      _admin(_records, _misbehaviour, _endpoint, _servedDirectory,
             [this](const std::string& address, int port, const std::string& certificate,
                    const std::string& key) {
               return addExtraListener(address, port, TlsContext::load(certificate, key));
             }),
      _adminListener(kLoopback, options.adminPort,
                     [this](Connection& connection) { _admin.serve(connection); }) {
  int port = options.port;
  for (const std::string& address : options.addresses) {
    _agentListeners.push_back(std::make_unique<Listener>(address, port, serveWith(_certificate)));
    port = _agentListeners.front()->port();
  }
}

Server::~Server() {
  stop();
}

Listener::Serve Server::serveWith(const TlsContext& certificate) {
  return [this, certificate](Connection& connection) { _endpoint.serve(connection, certificate); };
}

int Server::addExtraListener(const std::string& address, int port, const TlsContext& certificate) {
  MutexLock lock(_listenersMutex);
  Listener& listener = _extraListeners.emplace_back(address, port, serveWith(certificate));
  listener.start();
  return listener.port();
}

void Server::start() {
  for (const auto& listener : _agentListeners) listener->start();
  _adminListener.start();
}

// The administration port first, since its requests can still add listeners.
void Server::stop() {
  _adminListener.stop();
  for (const auto& listener : _agentListeners) listener->stop();
  MutexLock lock(_listenersMutex);
  for (Listener& listener : _extraListeners) listener.stop();
}

}  // namespace korvane::server
