// The connection of the current run, which handlers that are given none speak over, and what
// HttpsHandler has for the run as a whole.
#include <vector>

#include "comm/exchange_record.h"
#include "comm/https_handler.h"
#include "comm/server_connection.h"
#include "config/agent_config.h"
#include "config/settings.h"
#include "platform/platform.h"
#include "platform/threading.h"
#include "util/agent_run.h"

namespace korvane {
namespace {

// A thread that is left behind keeps its run, and the platform with it.
NameLookups::StartThread threadsOf(AgentRun& run, platform::Threading& threading) {
  return [&run, &threading](const std::function<void()>& body) {
    return threading.createThread(0, [body, kept = run.shared_from_this()] {
      const AgentRunScope inRun(kept);
      body();
    }) != nullptr;
  };
}

// A store that was freed and made anew gets a connection of its own; those before it stay until the
// run ends. A transport may be set before there is a store.
class ConnectionOfRun {
 public:
  ServerConnection& on(const Settings& settings, platform::Platform& system) {
    Synchronized hold(_lock);
    if (_settings == &settings.server && _files == &system.files) return *_connections.back();
    if (!_connections.empty()) _transport = _connections.back()->acquireTransport();
    _connections.push_back(std::make_unique<ServerConnection>(ServerConnection::Parts{
        settings, system.clock, system.files, system.sockets, system.systemInfo, system.threading,
        shutdownToken(), threadsOf(AgentRun::current(), system.threading),
        &AgentConfig::getHIDSInterface, &AgentConfig::isAgentShuttingDown}));
    if (_transport) _connections.back()->setTransport(std::move(_transport));
    _settings = &settings.server;
    _files = &system.files;
    return *_connections.back();
  }

  // Null while nobody has asked for it.
  ServerConnection* existing() {
    Synchronized hold(_lock);
    return _connections.empty() ? nullptr : _connections.back().get();
  }

  void setTransport(std::unique_ptr<Transport> transport) {
    Synchronized hold(_lock);
    if (_connections.empty()) {
      _transport = std::move(transport);
    } else {
      _connections.back()->setTransport(std::move(transport));
    }
  }

 private:
  Win32Mutex _lock;
  std::vector<std::unique_ptr<ServerConnection>> _connections GUARDED_BY(_lock);
  std::unique_ptr<Transport> _transport GUARDED_BY(_lock);
  const ServerSettings* _settings GUARDED_BY(_lock) = nullptr;
  const platform::Files* _files GUARDED_BY(_lock) = nullptr;
};

ConnectionOfRun& ofThisRun() {
  return AgentRun::current().part<ConnectionOfRun>(RunPart::connection);
}

}  // namespace

ServerConnection& currentConnection() {
  const Settings settings = settingsOf(*AgentConfig::getInstance());
  return ofThisRun().on(settings, platform::current());
}

HttpsHandler::HttpsHandler() : HttpsHandler(currentConnection()) {}

HttpsHandler::HttpsHandler(const STRING& server) : HttpsHandler(currentConnection(), server) {}

int HttpsHandler::getLastError() {
  ServerConnection* connection = ofThisRun().existing();
  return connection ? connection->record().transferError() : 0;
}

void HttpsHandler::curlCleanup() {
  if (ServerConnection* connection = ofThisRun().existing()) connection->close();
}

STRING HttpsHandler::getServerIP(const STRING& server) {
  return currentConnection().addressOf(server);
}

void HttpsHandler::setTransport(std::unique_ptr<Transport> transport) {
  ofThisRun().setTransport(std::move(transport));
}

}  // namespace korvane
