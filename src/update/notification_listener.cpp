#include "update/notification_listener.h"

#include <algorithm>

#include "config/setting_check.h"
#include "config/update_settings.h"
#include "eventlog/event_log.h"
#include "platform/error_codes.h"
#include "platform/sockets.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kListenerSource[] = "UpdateThread";
constexpr char kListenerTag[] = "tcpNotification";

int bindTo(platform::Socket& socket, int32_t port) {
  if (port < 1 || port > kLastPort) return platform::kWsaInvalidArgument;
  return socket.bind(/*anyAddress=*/true, static_cast<uint16_t>(port));
}

}  // namespace

struct NotificationListener::Listening {
  // Ends a socket's waits when the thread or the agent is to stop.
  class StopsWaits {
   public:
    StopsWaits(platform::Socket& socket, StopToken& threadStop)
        : _onStop(threadStop, [&socket] { socket.interrupt(); }),
          _onShutdown(shutdownToken(), [&socket] { socket.interrupt(); }) {}

   private:
    StopCallback _onStop;
    StopCallback _onShutdown;
  };

  Listening(std::unique_ptr<platform::Socket> made, StopToken& threadStop)
      : socket(std::move(made)), stopsWaits(*socket, threadStop) {}

  const std::unique_ptr<platform::Socket> socket;
  StopsWaits stopsWaits;
};

NotificationListener::NotificationListener(StopToken& threadStop, platform::Sockets& sockets,
                                           const UpdateSettings& settings)
    : _threadStop(threadStop), _sockets(sockets), _settings(settings) {}

NotificationListener::~NotificationListener() = default;

void NotificationListener::closeListener() {
  // A socket that is closed next need not be shut down in order.
  if (_listening) ignoreResult(_listening->socket->shutdownBoth());
  _listening.reset();
  _failed = false;
  _port = -1;
}

bool NotificationListener::giveUp() {
  _failed = true;
  return false;
}

bool NotificationListener::listen() {
  if (_listening) return true;
  if (_failed) return false;
  std::unique_ptr<platform::Socket> socket;
  if (const int error = _sockets.createTcp(socket)) {
    eventlog::event(EventId::notificationSocketNotCreated, kListenerSource, {error});
    return giveUp();
  }
  if (const int error = bindTo(*socket, _port)) {
    eventlog::event(EventId::notificationSocketNotBound, kListenerSource, {_port, error});
    return giveUp();
  }
  int error = socket->listen(kBacklog);
  // A connection that is gone again before it is accepted must not hold the thread.
  if (!error) error = socket->setNonBlocking(true);
  if (error) {
    eventlog::event(EventId::notificationSocketNotListening, kListenerSource, {_port, error});
    return giveUp();
  }
  eventlog::trace("Notification", "created socket and listening to it on port %d", _port);
  _listening = std::make_unique<Listening>(std::move(socket), _threadStop);
  return true;
}

NotificationListener::Outcome NotificationListener::poll(int32_t& countdown) {
  if (!_settings.tcpNotificationsEnabled()) {
    closeListener();
    return {};
  }
  if (const int32_t port = _settings.getTCPNotificationPort(); port != _port) {
    closeListener();
    _port = port;
  }
  if (!listen()) return {};
  int error = 0;
  switch (_listening->socket->waitReadable(kIdleMs, error)) {
    case platform::SocketWait::ready:
      return acceptConnection(countdown);
    case platform::SocketWait::timedOut:
      return {.waited = true};
    case platform::SocketWait::failed:
      eventlog::trace(kListenerTag, "TCP Notification:: getting error in select %d", error);
      break;
    case platform::SocketWait::interrupted:
      break;
  }
  return {};
}

// A connection that cannot be accepted leaves the cycle its pause, since the port stays ready then.
NotificationListener::Outcome NotificationListener::acceptConnection(int32_t& countdown) {
  eventlog::trace(kListenerTag, "Received a notification");
  std::unique_ptr<platform::Socket> client;
  int error = _listening->socket->accept(client);
  if (!error) error = client->setNonBlocking(true);
  if (error) {
    eventlog::trace(kListenerTag, "Cannot accept a notification on port %d: error %d", _port,
                    error);
    return {};
  }
  eventlog::trace(kListenerTag, "non-blocking mode is enabled for client socket - newSock");

  const int32_t seconds = std::min(countdown, kMostSeconds);
  eventlog::trace(kListenerTag,
                  "_pollingInterval is %ld sec... setting maximum timout of %ld sec...", countdown,
                  seconds);
  int32_t waited = 0;
  Outcome outcome{.connected = true, .waited = true};
  {
    const Listening::StopsWaits stopsWaits(*client, _threadStop);
    outcome.byte = readByte(*client, std::max(seconds, 1), waited);
  }
  if (countdown > 0) countdown = std::max(countdown - waited, 0);
  eventlog::trace(kListenerTag, "recv() returned. Now _pollingInterval is %ld sec...", countdown);
  if (!outcome.byte) eventlog::trace(kListenerTag, "Failed to read notification message");
  // The peer may have gone already.
  ignoreResult(client->shutdownBoth());
  return outcome;
}

std::optional<uint8_t> NotificationListener::readByte(platform::Socket& client, int32_t seconds,
                                                      int32_t& waited) {
  bool wasSilent = false;
  for (;;) {
    uint8_t byte = 0;
    size_t got = 0;
    const int error = client.receive(&byte, 1, got);
    if (error == 0) return got == 1 ? std::optional(byte) : std::nullopt;
    const bool silent = error == platform::kWsaWouldBlock;
    wasSilent = wasSilent || silent;
    if (!wasSilent || waited >= seconds) return std::nullopt;
    ++waited;
    if (!pause(client, silent)) return std::nullopt;
  }
}

// Up to a second; false when a stop ended it. A broken connection is ready at once, so that
// its pause is one of the thread.
bool NotificationListener::pause(platform::Socket& client, bool untilReadable) {
  int error = 0;
  const auto waited =
      untilReadable ? client.waitReadable(kIdleMs, error) : platform::SocketWait::failed;
  if (waited == platform::SocketWait::failed) return !_threadStop.sleepFor(kIdleMs);
  return waited != platform::SocketWait::interrupted;
}

}  // namespace korvane
