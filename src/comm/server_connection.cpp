#include "comm/server_connection.h"

#include <utility>

#include "comm/curl_transport.h"
#include "comm/server_url.h"
#include "config/server_settings.h"
#include "config/settings_file.h"
#include "platform/clock.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr int64_t kMsPerSecond = 1000;

}  // namespace

ServerConnection::ServerConnection(Parts parts)
    : _parts(std::move(parts)),
      _agent({_parts.settings, _parts.files, _parts.systemInfo, _parts.idsComponent}),
      _lookUps({_parts.sockets, _parts.threading, _parts.stop, _parts.startThread}),
      _record(_parts.clock),
      _lastFailbackCheck(nowSeconds()) {}

ServerConnection::~ServerConnection() = default;

int64_t ServerConnection::nowSeconds() const {
  return _parts.clock.monotonicMs() / kMsPerSecond;
}

STRING ServerConnection::serverInUse() const {
  return korvane::serverInUse(_parts.settings.server);
}

Destination ServerConnection::destination(const STRING& server) {
  {
    Synchronized hold(_commLock);
    openTransport();
  }
  const ServerSettings& settings = _parts.settings.server;
  return {server,
          withHost(settings.getURL(), server),
          settings.getSSLCertFile(),
          settings.getConnectionTimeout(),
          tlsIdentityOf(settings),
          settings.isPlainHttpEnabled()};
}

void ServerConnection::openTransport() {
  if (!_transport) {
    _transport = std::make_unique<CurlTransport>(
        CurlTransport::Parts{_parts.clock, _parts.sockets, _parts.stop});
    _usesLibcurl = true;
  }
  // perform() tells of a handle that cannot be had.
  ignoreResult(_transport->open());
}

void ServerConnection::close() {
  Synchronized hold(_commLock);
  if (_transport) _transport->close();
  if (!_usesLibcurl) return;
  _transport.reset();
  _usesLibcurl = false;
}

void ServerConnection::setTransport(std::unique_ptr<Transport> transport) {
  Synchronized hold(_commLock);
  _transport = std::move(transport);
  if (_transport) _usesLibcurl = false;
}

std::unique_ptr<Transport> ServerConnection::acquireTransport() {
  Synchronized hold(_commLock);
  return _usesLibcurl ? nullptr : std::move(_transport);
}

ConnectionTarget ServerConnection::target(const STRING& server) const {
  return agentTarget(_parts.settings.server, _lowestTls, server);
}

ConnectionReport ServerConnection::test(const ConnectionTarget& target) const {
  return testConnection(
      target, {_parts.clock, _parts.files, _parts.sockets, _parts.systemInfo, _parts.stop});
}

void ServerConnection::offerApplicationRequest(const STRING& identifier) {
  Synchronized hold(_requestLock);
  _applicationRequest = identifier;
}

bool ServerConnection::collectApplicationRequest(STRING& identifier) {
  Synchronized hold(_requestLock);
  identifier = std::exchange(_applicationRequest, STRING());
  return !identifier.empty();
}

void ServerConnection::setStatusAddition(StatusAddition addition) {
  Synchronized hold(_additionLock);
  _addition = std::move(addition);
}

ServerConnection::StatusAddition ServerConnection::statusAddition() const {
  Synchronized hold(_additionLock);
  return _addition;
}

void ServerConnection::saveSettings() {
  SettingsFile& file = _parts.settings.file;
  // What cannot be written now is written by one of the next loads.
  if (file.getWhoIsRunning() != SettingsFile::RUNNING_CONFIG_TOOL)
    ignoreResult(file.updateIniFile());
}

void ServerConnection::forgetIdentity(const STRING& guid) {
  _parts.settings.server.clearUniqueId(guid);
}

}  // namespace korvane
