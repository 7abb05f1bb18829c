#include "config/server_settings.h"

#include <stdexcept>

#include "config/change_group.h"
#include "config/settings_store.h"
#include "config/url_text.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

void changeUrl(SettingsStore& store, STRING UrlText::*part, const STRING& value) {
  const ChangeGroup group(store);
  const Synchronized hold(store.lock);
  UrlText url = UrlText::parse(store.communication.text(Key::agentUrl));
  if (url.protocol.empty() && !url.user.empty()) return;  // a text that is no URL stays
  url.*part = value.trimmed();
  // A part that makes no URL leaves the URL as it was.
  ignoreResult(store.assign(rowOf(Key::agentUrl), url.text()));
}

}  // namespace

bool ServerSettings::isUnicode() const {
  return getCharset().equalsIgnoreCase("UTF-16LE");
}

bool ServerSettings::registered() const {
  return !getUniqueId().empty();
}

bool ServerSettings::clearUniqueId(const STRING& guidUsed) {
  const ChangeGroup group(_store);
  const Synchronized hold(_store.lock);
  if (_store.communication.text(Key::agentId) != guidUsed) return false;
  // Nobody has what was delivered under it.
  ignoreResult(_store.assign(rowOf(Key::applicationsChecksum), {}));
  ignoreResult(_store.assign(rowOf(Key::filesChecksum), {}));
  return _store.assign(rowOf(Key::agentId), {});
}

STRING ServerSettings::getURLHost() const {
  return UrlText::parse(getURL()).host;
}

STRING ServerSettings::getURLPort() const {
  return UrlText::parse(getURL()).port;
}

STRING ServerSettings::getURLProtocol() const {
  return UrlText::parse(getURL()).protocol;
}

void ServerSettings::setURLHost(const STRING& host) {
  changeUrl(_store, &UrlText::host, host);
}

void ServerSettings::setURLPort(const STRING& port) {
  changeUrl(_store, &UrlText::port, port);
}

void ServerSettings::setURLProtocol(const STRING& protocol) {
  changeUrl(_store, &UrlText::protocol, protocol);
}

STRING ServerSettings::getServerList() const {
  const Synchronized hold(_store.lock);
  return _store.servers.text();
}

void ServerSettings::setServerList(const STRING& text) {
  const ChangeGroup group(_store);
  const Synchronized hold(_store.lock);
  // The list begins anew also when the text is the stored one.
  if (_store.assign(rowOf(Key::serverList), text)) _store.servers.assign(text, _store.urlHost());
}

int32_t ServerSettings::getServerListSize() const {
  const Synchronized hold(_store.lock);
  return static_cast<int32_t>(_store.servers.entries().size());
}

size_t ServerSettings::getServerListRefused() const {
  const Synchronized hold(_store.lock);
  return _store.servers.refused();
}

STRING ServerSettings::getServerEntry(int32_t index) const {
  const Synchronized hold(_store.lock);
  const std::vector<STRING>& entries = _store.servers.entries();
  if (index < 1 || static_cast<size_t>(index) > entries.size()) {
    throw std::out_of_range("server.list has no entry " + std::to_string(index) + ", but " +
                            std::to_string(entries.size()) + " entries");
  }
  return entries[static_cast<size_t>(index) - 1];
}

STRING ServerSettings::getServerPrimary() const {
  const Synchronized hold(_store.lock);
  return _store.servers.primary();
}

STRING ServerSettings::getServerCurrent() const {
  const Synchronized hold(_store.lock);
  return _store.servers.current();
}

void ServerSettings::setServerCurrent(const STRING& server) {
  const Synchronized hold(_store.lock);
  _store.servers.setCurrent(server);
}

STRING ServerSettings::getServerNext() const {
  const Synchronized hold(_store.lock);
  return _store.servers.next();
}

void ServerSettings::setServerNext(const STRING& server) {
  const Synchronized hold(_store.lock);
  _store.servers.setNextAfter(server);
}

STRING ServerSettings::getServerLast() const {
  const Synchronized hold(_store.lock);
  return _store.servers.last();
}

void ServerSettings::setServerLast(const STRING& server) {
  const Synchronized hold(_store.lock);
  _store.servers.setLast(server);
}

void ServerSettings::setFipsEnabled(bool enabled) {
  const ChangeGroup group(_store);
  const Synchronized hold(_store.lock);
  // No value of this kind is refused.
  ignoreResult(_store.assign(rowOf(Key::fipsEnabled), STRING::fromBool(enabled)));
  _store.fipsOutstanding = true;
}

// The settings of the table, one line each.
// clang-format off

// [Agent]
STRING ServerSettings::getInitialGroup() const { return _store.text(Key::agentInitialGroup); }
void ServerSettings::setInitialGroup(const STRING& value) { _store.change(Key::agentInitialGroup, value); }
STRING ServerSettings::getAgentConfigInitialGroup() const { return _store.text(Key::agentConfigInitialGroup); }
void ServerSettings::setAgentConfigInitialGroup(const STRING& value) { _store.change(Key::agentConfigInitialGroup, value); }
STRING ServerSettings::getConfigInitialGroup() const { return _store.text(Key::configInitialGroup); }
void ServerSettings::setConfigInitialGroup(const STRING& value) { _store.change(Key::configInitialGroup, value); }
STRING ServerSettings::getCharset() const { return _store.text(Key::agentCharset); }
void ServerSettings::setCharset(const STRING& value) { _store.change(Key::agentCharset, value); }
STRING ServerSettings::getAgentName() const { return _store.text(Key::agentName); }
void ServerSettings::setAgentName(const STRING& value) { _store.change(Key::agentName, value); }
STRING ServerSettings::getOpstateInterval() const { return _store.text(Key::agentOpstateInterval); }
void ServerSettings::setOpstateInterval(const STRING& value) { _store.change(Key::agentOpstateInterval, value); }
STRING ServerSettings::getUniqueId() const { return _store.text(Key::agentId); }
void ServerSettings::setUniqueId(const STRING& value) { _store.change(Key::agentId, value); }
STRING ServerSettings::getURL() const { return _store.text(Key::agentUrl); }
void ServerSettings::setURL(const STRING& value) { _store.change(Key::agentUrl, value); }
STRING ServerSettings::getFeatures() const { return _store.text(Key::agentFeatures); }
void ServerSettings::setFeatures(const STRING& value) { _store.change(Key::agentFeatures, value); }
bool ServerSettings::isPlainHttpEnabled() const { return _store.flag(Key::httpPlainEnabled); }
// [FIPS] [System]
bool ServerSettings::isFipsEnabled() const { return _store.flag(Key::fipsEnabled); }
STRING ServerSettings::getSSLCertFile() const { return _store.text(Key::sslTrustStore); }
void ServerSettings::setSSLCertFile(const STRING& value) { _store.change(Key::sslTrustStore, value); }
STRING ServerSettings::getServerNames() const { return _store.text(Key::sslServerNames); }
STRING ServerSettings::getServerPins() const { return _store.text(Key::sslServerPins); }
STRING ServerSettings::getRevocationFile() const { return _store.text(Key::sslCrlFile); }
STRING ServerSettings::getClientCertificate() const { return _store.text(Key::sslClientCertificate); }
STRING ServerSettings::getClientKey() const { return _store.text(Key::sslClientKey); }
STRING ServerSettings::getMinimumTls() const { return _store.text(Key::sslMinimumVersion); }

// [Polling] [Communication]
uint32_t ServerSettings::getFailbackInterval() const { return _store.interval(Key::failbackInterval); }
void ServerSettings::setFailbackInterval(uint32_t value) { _store.change(Key::failbackInterval, int64_t{value}); }
uint32_t ServerSettings::getConnectionTimeout() const { return _store.interval(Key::connectionTimeout); }
void ServerSettings::setConnectionTimeout(uint32_t value) { _store.change(Key::connectionTimeout, int64_t{value}); }

// clang-format on

}  // namespace korvane
