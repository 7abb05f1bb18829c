// From server to server and back: which one the next exchange goes to, and its address.
#include <utility>

#include "comm/handler_sources.h"
#include "comm/server_connection.h"
#include "comm/server_url.h"
#include "config/server_settings.h"
#include "eventlog/event_log.h"

namespace korvane {

void ServerConnection::checkFailback(Destination& to) {
  const ServerSettings& settings = _parts.settings.server;
  const int64_t now = nowSeconds();
  const int64_t passed = now - _lastFailbackCheck;
  const STRING primary = settings.getServerPrimary();
  // A clock before the stored time gives a negative difference, which never counts as passed.
  if (passed < 0 || passed < static_cast<int64_t>(settings.getFailbackInterval())) return;
  if (primary.empty() || to.server == primary || _parts.stop.requested()) return;
  Destination primaryServer = destination(primary);
  if (probe(primaryServer).code == 0) {
    eventlog::trace(kSendSource, "Connection to primary server successful");
    returnTo(primary, to);
  } else {
    eventlog::trace(kSendSource, "Could not connect to the primary server");
  }
  _lastFailbackCheck = now;
}

void ServerConnection::returnTo(const STRING& primary, Destination& to) {
  ServerSettings& settings = _parts.settings.server;
  to.server = primary;
  to.url = withHost(settings.getURL(), primary);
  setServerAddress(primary, addressOf(primary));
  settings.setServerCurrent(primary);
  settings.setServerNext(primary);
}

void ServerConnection::failOver(const STRING& server) {
  bool renew = readLocalAddresses();
  if (server == serverInUse()) {
    if (serverMoved(server)) {
      renew = true;
    } else {
      useNextServer();
    }
  }
  if (!renew) return;
  eventlog::trace(kSendSource, "Reinitializing Curl on COMM Error");
  renewTransport();
}

bool ServerConnection::readLocalAddresses() {
  std::vector<STRING> addresses;
  if (!_localAddresses || !_localAddresses(addresses)) {
    eventlog::event(EventId::ownAddressesNotRead, kHandlerSource);
    return false;
  }
  if (addresses == _ownAddresses) {
    eventlog::trace(kSendSource, "No change in Agent IP");
    return false;
  }
  _ownAddresses = std::move(addresses);
  return true;
}

bool ServerConnection::serverMoved(const STRING& server) {
  const STRING address = addressOf(server);
  // A server whose name cannot be resolved now has not moved: the next one is tried.
  if (!address.empty() && address != serverAddress()) {
    setServerAddress(server, address);
    return true;
  }
  eventlog::trace(kSendSource, "No change in Server IP");
  return false;
}

void ServerConnection::useNextServer() {
  ServerSettings& settings = _parts.settings.server;
  const STRING next = settings.getServerNext();
  if (next.empty()) return;
  eventlog::trace(kSendSource, "Will Failover to Server %s", next);
  setServerAddress(next, addressOf(next));
  settings.setServerCurrent(next);
  settings.setServerNext(next);
}

void ServerConnection::renewTransport() {
  eventlog::event(EventId::reconnecting, kHandlerSource);
  _transport->close();
  if (!_transport->open()) eventlog::event(EventId::transferHandleNotCreated, kHandlerSource);
}

void ServerConnection::announce(const STRING& server) {
  {
    Synchronized hold(_addressLock);
    if (_addressedServer == server && !_serverAddress.empty()) return;
  }
  setServerAddress(server, addressOf(server));
}

STRING ServerConnection::addressOf(const STRING& host) {
  eventlog::trace("HttpsHandler:getServerIP", "szServerName = %s", host);
  const uint32_t seconds = _parts.settings.server.getConnectionTimeout();
  return _lookUps.address(host.toUtf8(), seconds * 1000);
}

void ServerConnection::setServerAddress(const STRING& server, const STRING& address) {
  Synchronized hold(_addressLock);
  _addressedServer = server;
  _serverAddress = address;
}

STRING ServerConnection::serverAddress() {
  Synchronized hold(_addressLock);
  return _serverAddress;
}

void ServerConnection::setLocalAddressSource(LocalAddresses source) {
  Synchronized hold(_commLock);
  _localAddresses = std::move(source);
}

}  // namespace korvane
