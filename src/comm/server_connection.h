// The agent's connection to its management servers: one kept connection, one exchange at a time on
// it, from server to server and back.
//
// When a transfer fails the next exchange goes to the next server of the list; once an interval the
// primary one is tried, and returned to when it answers. The lowest TLS version that is accepted is
// 1.2 until a probe fails, then 1.0.
//
// Lifetime: one for each agent; what its parts refer to outlives it. Threads: any may call
// anything; an exchange waits for the one before it. A stop ends a transfer or look-up in progress
// at once, and no fail-over runs any more. The interval of the fail-back check is counted in
// seconds on the monotonic clock, from the construction on. Nothing throws but std::bad_alloc.
//
//   Destination to = connection.destination(connection.serverInUse());
//   HttpsMessageGenerator message(connection.agent().charset());
//   const ExchangeResult result = connection.send(to, HttpsHandler::GET_UPDATE, message);
//   if (result.code != 0) report(stageName(result.failure.stage), result.failure.cause);
//
// HttpsHandler speaks the agent's messages over it.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "agent/thread/locks.h"
#include "agent/thread/stop_token.h"
#include "comm/agent_description.h"
#include "comm/connection_test.h"
#include "comm/exchange.h"
#include "comm/exchange_record.h"
#include "comm/name_lookups.h"
#include "comm/transport.h"
#include "config/settings.h"
#include "platform/fwd.h"
#include "util/string.h"

namespace korvane {

class ServerConnection {
 public:
  // False: the addresses are not available.
  using LocalAddresses = std::function<bool(std::vector<STRING>&)>;

  struct Parts {
    Settings settings;
    platform::Clock& clock;
    platform::Files& files;  // the CA file's, and those that messages are made from
    platform::Sockets& sockets;
    platform::SystemInfo& systemInfo;
    platform::Threading& threading;
    StopToken& stop;
    NameLookups::StartThread startThread;
    std::function<HidsInterface*()> idsComponent;  // the one of the moment, or null
    std::function<bool()> shuttingDown;            // the agent takes no new work any more
  };

  explicit ServerConnection(Parts parts);
  ~ServerConnection();
  ServerConnection(const ServerConnection&) = delete;
  ServerConnection& operator=(const ServerConnection&) = delete;

  // The current server, or the configured URL's host without a server list.
  STRING serverInUse() const;
  // The way to a server; makes the transport ready.
  Destination destination(const STRING& server);
  // Looks the server's address up when it is another server than last time.
  void announce(const STRING& server);

  // One message of a type (HttpsHandler's constants), and its answer. `to` changes to the primary
  // server when a fail-back comes first.
  [[nodiscard]] ExchangeResult send(Destination& to, int type, HttpsMessageGenerator& message);
  // A connection test's message. The first failure with TLS 1.2 as the lowest version lowers it to
  // TLS 1.0 for good and tries once more, unless ssl.minimum.version is set.
  [[nodiscard]] ExchangeResult probe(Destination& to);

  // The stages of a connection test, on a connection of its own (connection_test.h).
  ConnectionTarget target(const STRING& server = {}) const;
  ConnectionReport test(const ConnectionTarget& target) const;

  // The address of a host, dotted; empty when it cannot be resolved or a stop came first.
  STRING addressOf(const STRING& host);
  // Of the server in use, as it was looked up last.
  STRING serverAddress();
  // CURL_SSLVERSION_..., the lowest version that exchanges accept now.
  long lowestTls() const { return _lowestTls; }

  // Ends the connection and the use of libcurl. No exchange may be in progress; a later destination
  // starts both again.
  void close();
  // Uses this transport in place of libcurl; null goes back to it. No exchange may be in progress.
  void setTransport(std::unique_ptr<Transport> transport);
  // The transport that was set, for another connection to use.
  std::unique_ptr<Transport> acquireTransport();
  // Where the agent's own addresses come from; without it they are not available.
  void setLocalAddressSource(LocalAddresses source);

  // What a status says beside the agent's own properties. add: appends to them and gives a number
  // that stands for what it said; taken: the server has accepted the status of that number.
  struct StatusAddition {
    std::function<uint64_t(PropertyList&)> add;
    std::function<void(uint64_t)> taken;
  };
  // Nothing when empty.
  void setStatusAddition(StatusAddition addition);
  StatusAddition statusAddition() const;

  // The identifier of a request for application data that a server has offered in its answer to a
  // report since it was last taken; false without one. The newest one counts.
  void offerApplicationRequest(const STRING& identifier);
  [[nodiscard]] bool collectApplicationRequest(STRING& identifier);

  // For HttpsHandler
  const AgentDescription& agent() const { return _agent; }
  ExchangeRecord& record() { return _record; }
  platform::Files& files() const { return _parts.files; }
  bool shuttingDown() const { return _parts.shuttingDown(); }
  // After failures the settings are written, unless the configuration tool has them.
  void saveSettings();
  // The server does not know an identity: the agent registers again, unless it has another one now.
  void forgetIdentity(const STRING& guid);

 private:
  // libcurl's CURL_SSLVERSION_TLSv1_2 and CURL_SSLVERSION_TLSv1.
  static constexpr long kTls12 = 6;
  static constexpr long kTls1 = 1;

  // The steps of a send.
  [[nodiscard]] bool addGuid(int type, HttpsMessageGenerator& message, ExchangeResult& result);
  void sendOver(const Destination& to, int type, HttpsMessageGenerator& message,
                ExchangeResult& result) REQUIRES(_commLock);
  void transfer(const Destination& to, int type, HttpsMessageGenerator& message,
                std::string_view body, ExchangeResult& result) REQUIRES(_commLock);
  [[nodiscard]] int judge(int code, const Destination& to, int type, HttpsMessageGenerator& message,
                          const TransportRequest& request, const TransportResult& transferred,
                          ExchangeResult& result);
  void noteServerUsed(const STRING& server, int type);

  // Before the lock: tries the primary server once an interval.
  void checkFailback(Destination& to);
  void returnTo(const STRING& primary, Destination& to);
  // Looks at what may have changed when a transfer to `server` failed, and moves on to the
  // next server when nothing has.
  void failOver(const STRING& server) REQUIRES(_commLock);
  // Asks for the agent's own addresses; true when they differ from the ones known.
  [[nodiscard]] bool readLocalAddresses() REQUIRES(_commLock);
  [[nodiscard]] bool serverMoved(const STRING& server);
  void useNextServer();
  void renewTransport() REQUIRES(_commLock);
  void openTransport() REQUIRES(_commLock);
  void setServerAddress(const STRING& server, const STRING& address);
  int64_t nowSeconds() const;

  const Parts _parts;
  const AgentDescription _agent;
  NameLookups _lookUps;
  ExchangeRecord _record;

  // Held for the whole of a send, but for the fail-back check before it. Taken before the others.
  Win32Mutex _commLock;
  std::unique_ptr<Transport> _transport GUARDED_BY(_commLock);
  bool _usesLibcurl GUARDED_BY(_commLock) = false;
  std::vector<STRING> _ownAddresses GUARDED_BY(_commLock);
  LocalAddresses _localAddresses GUARDED_BY(_commLock);

  Win32Mutex _addressLock;
  STRING _addressedServer GUARDED_BY(_addressLock);
  STRING _serverAddress GUARDED_BY(_addressLock);

  mutable Win32Mutex _additionLock;
  StatusAddition _addition GUARDED_BY(_additionLock);

  Win32Mutex _requestLock;
  STRING _applicationRequest GUARDED_BY(_requestLock);

  std::atomic<int64_t> _lastFailbackCheck;  // seconds, monotonic
  std::atomic<long> _lowestTls{kTls12};
};

// The current run's, for HttpsHandler and whoever builds what speaks to the server.
ServerConnection& currentConnection();

}  // namespace korvane
