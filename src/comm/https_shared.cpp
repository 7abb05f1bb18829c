#include "comm/https_shared.h"

#include "comm/curl_transport.h"
#include "comm/name_lookup.h"
#include "comm/server_url.h"
#include "config/agent_config.h"
#include "eventlog/event_log.h"
#include "platform/clock.h"
#include "platform/platform.h"
#include "util/agent_run.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr int64_t kMsPerSecond = 1000;

}  // namespace

int64_t failbackClock() {
  return platform::current().clock.monotonicMs() / kMsPerSecond;
}

STRING serverInUse() {
  AgentConfig& config = *AgentConfig::getInstance();
  const STRING current = config.getServerCurrent();
  return current.empty() ? hostOfUrl(config.getURL()) : current;
}

HttpsHandler::Shared::Shared() : _lastFailbackCheck(failbackClock()) {}

Transport& HttpsHandler::Shared::transport() {
  if (!_cHandle) {
    _cHandle = std::make_unique<CurlTransport>();
    curlInUse = true;
  }
  // perform() tells of a handle that cannot be had.
  ignoreResult(_cHandle->open());
  return *_cHandle;
}

void HttpsHandler::Shared::reInitializeCurl() {
  eventlog::event(EventId::reconnecting, kHandlerSource);
  _cHandle->close();
  if (!_cHandle->open()) eventlog::event(EventId::transferHandleNotCreated, kHandlerSource);
}

bool HttpsHandler::Shared::populateIPList() {
  std::vector<STRING> addresses;
  if (!localAddresses || !localAddresses(addresses)) {
    eventlog::event(EventId::ownAddressesNotRead, kHandlerSource);
    return false;
  }
  if (addresses == _ipList) {
    eventlog::trace(kSendSource, "No change in Agent IP");
    return false;
  }
  _ipList = std::move(addresses);
  return true;
}

void HttpsHandler::Shared::failOver(const STRING& server) {
  bool renew = populateIPList();
  if (server == serverInUse()) {
    if (serverMoved(server)) {
      renew = true;
    } else {
      useNextServer();
    }
  }
  if (!renew) return;
  eventlog::trace(kSendSource, "Reinitializing Curl on COMM Error");
  reInitializeCurl();
}

bool HttpsHandler::Shared::serverMoved(const STRING& server) {
  const STRING address = getServerIP(server);
  // A server whose name cannot be resolved now has not moved: the next one is tried.
  if (!address.empty() && address != serverIP()) {
    setServerIP(server, address);
    return true;
  }
  eventlog::trace(kSendSource, "No change in Server IP");
  return false;
}

void HttpsHandler::Shared::useNextServer() {
  AgentConfig& config = *AgentConfig::getInstance();
  const STRING next = config.getServerNext();
  if (next.empty()) return;
  eventlog::trace(kSendSource, "Will Failover to Server %s", next);
  setServerIP(next, getServerIP(next));
  config.setServerCurrent(next);
  config.setServerNext(next);
}

void HttpsHandler::Shared::announceServer(const STRING& server) {
  {
    Synchronized hold(addressLock);
    if (serverOfIP == server && !_serverIP.empty()) return;
  }
  setServerIP(server, getServerIP(server));
}

void HttpsHandler::Shared::setServerIP(const STRING& server, const STRING& address) {
  Synchronized hold(addressLock);
  serverOfIP = server;
  _serverIP = address;
}

STRING HttpsHandler::Shared::serverIP() {
  Synchronized hold(addressLock);
  return _serverIP;
}

HttpsHandler::Shared& HttpsHandler::shared() {
  return AgentRun::current().part<Shared>(RunPart::connection);
}

void HttpsHandler::curlCleanup() {
  Shared& state = shared();
  Synchronized hold(state._commLock);
  if (state._cHandle) state._cHandle->close();
  if (!state.curlInUse) return;
  state._cHandle.reset();
  state.curlInUse = false;
}

void HttpsHandler::setTransport(std::unique_ptr<Transport> transport) {
  Shared& state = shared();
  Synchronized hold(state._commLock);
  state._cHandle = std::move(transport);
  if (state._cHandle) state.curlInUse = false;
}

void HttpsHandler::setLocalAddressSource(std::function<bool(std::vector<STRING>&)> source) {
  Shared& state = shared();
  Synchronized hold(state._commLock);
  state.localAddresses = std::move(source);
}

long HttpsHandler::lowestTls() {
  return shared().CURRENT_CURLOPT_SSLVERSION;
}

int HttpsHandler::getLastError() {
  return shared()._lastError;
}

STRING HttpsHandler::getServerIP(const STRING& server) {
  eventlog::trace("HttpsHandler:getServerIP", "szServerName = %s", server);
  const uint32_t seconds = AgentConfig::getInstance()->getConnectionTimeout();
  return lookUpAddress(server.toUtf8(), seconds * static_cast<uint32_t>(kMsPerSecond));
}

}  // namespace korvane
