// Identity, URL and the server list.
#include <stdexcept>

#include "config/agent_config.h"
#include "config/agent_config_state.h"
#include "config/url_text.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

void changeUrl(AgentConfigState& state, STRING UrlText::*part, const STRING& value) {
  const AgentConfig::ChangeGroup group(state.owner);
  const Synchronized hold(state.lock);
  UrlText url = UrlText::parse(state.communication.text(Key::agentUrl));
  url.*part = value.trimmed();
  // A part that makes no URL leaves the URL as it was.
  ignoreResult(state.assign(rowOf(Key::agentUrl), url.text()));
}

}  // namespace

bool AgentConfig::isUnicode() const {
  return getCharset().equalsIgnoreCase("UTF-16LE");
}

bool AgentConfig::registered() const {
  return !getUniqueId().empty();
}

bool AgentConfig::clearUniqueId(const STRING& guidUsed) {
  const ChangeGroup group(*this);
  const Synchronized hold(_state->lock);
  if (_state->communication.text(Key::agentId) != guidUsed) return false;
  return _state->assign(rowOf(Key::agentId), {});
}

bool AgentConfig::updateInProgress() const {
  return !getSoftwareUpdateDirectory().empty();
}

STRING AgentConfig::getURLHost() const {
  return UrlText::parse(getURL()).host;
}
STRING AgentConfig::getURLPort() const {
  return UrlText::parse(getURL()).port;
}
STRING AgentConfig::getURLProtocol() const {
  return UrlText::parse(getURL()).protocol;
}

void AgentConfig::setURLHost(const STRING& host) {
  changeUrl(*_state, &UrlText::host, host);
}
void AgentConfig::setURLPort(const STRING& port) {
  changeUrl(*_state, &UrlText::port, port);
}
void AgentConfig::setURLProtocol(const STRING& protocol) {
  changeUrl(*_state, &UrlText::protocol, protocol);
}

STRING AgentConfig::getServerList() const {
  const Synchronized hold(_state->lock);
  return _state->servers.text();
}

void AgentConfig::setServerList(const STRING& text) {
  const ChangeGroup group(*this);
  const Synchronized hold(_state->lock);
  // The list begins anew also when the text is the stored one.
  if (_state->assign(rowOf(Key::serverList), text)) _state->servers.assign(text, _state->urlHost());
}

int32_t AgentConfig::getServerListSize() const {
  const Synchronized hold(_state->lock);
  return static_cast<int32_t>(_state->servers.entries().size());
}

STRING AgentConfig::getServerEntry(int32_t index) const {
  const Synchronized hold(_state->lock);
  const std::vector<STRING>& entries = _state->servers.entries();
  if (index < 1 || static_cast<size_t>(index) > entries.size()) {
    throw std::out_of_range("server.list has no entry " + std::to_string(index) + ", but " +
                            std::to_string(entries.size()) + " entries");
  }
  return entries[static_cast<size_t>(index) - 1];
}

STRING AgentConfig::getServerPrimary() const {
  const Synchronized hold(_state->lock);
  return _state->servers.primary();
}

STRING AgentConfig::getServerCurrent() const {
  const Synchronized hold(_state->lock);
  return _state->servers.current();
}

void AgentConfig::setServerCurrent(const STRING& server) {
  const Synchronized hold(_state->lock);
  _state->servers.setCurrent(server);
}

STRING AgentConfig::getServerNext() const {
  const Synchronized hold(_state->lock);
  return _state->servers.next();
}

void AgentConfig::setServerNext(const STRING& server) {
  const Synchronized hold(_state->lock);
  _state->servers.setNextAfter(server);
}

STRING AgentConfig::getServerLast() const {
  const Synchronized hold(_state->lock);
  return _state->servers.last();
}

void AgentConfig::setServerLast(const STRING& server) {
  const Synchronized hold(_state->lock);
  _state->servers.setLast(server);
}

}  // namespace korvane
