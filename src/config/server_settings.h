// Who the agent is to its management servers and how it reaches them: identity, URL and server list,
// TLS, the times of a connection. Threads, writing and errors: as AgentConfig has them.
#pragma once

#include <cstdint>

#include "util/string.h"

namespace korvane {

class SettingsStore;

class ServerSettings {
 public:
  explicit ServerSettings(SettingsStore& store) : _store(store) {}

  // [Agent]: identity and server
  STRING getInitialGroup() const;
  void setInitialGroup(const STRING& value);
  STRING getAgentConfigInitialGroup() const;
  void setAgentConfigInitialGroup(const STRING& value);
  STRING getConfigInitialGroup() const;
  void setConfigInitialGroup(const STRING& value);
  STRING getCharset() const;
  void setCharset(const STRING& value);
  bool isUnicode() const;  // the character set is "UTF-16LE"
  STRING getAgentName() const;
  void setAgentName(const STRING& value);
  STRING getOpstateInterval() const;
  void setOpstateInterval(const STRING& value);
  STRING getUniqueId() const;
  void setUniqueId(const STRING& value);
  // Forgets the identifier when it is still the one that a request was made with, so that the agent
  // registers again; one that was assigned meanwhile stays.
  bool clearUniqueId(const STRING& guidUsed);
  bool registered() const;  // the agent has an identifier
  STRING getURL() const;
  void setURL(const STRING& value);
  STRING getURLHost() const;
  STRING getURLPort() const;  // empty when the URL names none
  STRING getURLProtocol() const;
  void setURLHost(const STRING& host);
  void setURLPort(const STRING& port);
  void setURLProtocol(const STRING& protocol);
  STRING getFeatures() const;
  void setFeatures(const STRING& value);
  bool isPlainHttpEnabled() const;

  // Server list
  STRING getServerList() const;
  void setServerList(const STRING& text);
  int32_t getServerListSize() const;
  size_t getServerListRefused() const;         // entries that are left out because they name a user
  STRING getServerEntry(int32_t index) const;  // from 1; std::out_of_range otherwise
  STRING getServerPrimary() const;
  STRING getServerCurrent() const;
  void setServerCurrent(const STRING& server);
  STRING getServerNext() const;
  void setServerNext(const STRING& server);  // stores the entry after the given one, wrapping round
  STRING getServerLast() const;              // "Unknown" until an exchange succeeded
  void setServerLast(const STRING& server);

  // [FIPS]
  bool isFipsEnabled() const;
  void setFipsEnabled(bool enabled);

  // [System]
  STRING getSSLCertFile() const;
  void setSSLCertFile(const STRING& value);
  // Who the server must be and who the agent is; empty texts ask for nothing.
  STRING getServerNames() const;
  STRING getServerPins() const;
  STRING getRevocationFile() const;
  STRING getClientCertificate() const;
  STRING getClientKey() const;
  STRING getMinimumTls() const;  // "1.2" or "1.3"

  // [Polling] [Communication]
  uint32_t getFailbackInterval() const;
  void setFailbackInterval(uint32_t seconds);
  uint32_t getConnectionTimeout() const;
  void setConnectionTimeout(uint32_t seconds);

 private:
  SettingsStore& _store;
};

}  // namespace korvane
