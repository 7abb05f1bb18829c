// Listens on the notification port, where a server sends one byte to ask for an update at once.
//
// Lifetime: part of its thread; closed by its destructor; what it is made of outlives it.
// Threads: its owner's alone. A stop, of that thread or of the agent, ends every wait at once and
// for good.
// Waiting: poll() spends the idle second of a cycle in its wait for a connection. A client
// that connects and says nothing is waited for as long as the countdown to the next status
// lasts, at most 30 seconds and at least one wait of up to a second; the countdown goes
// down by the seconds begun, never below 0.
// Errors: a port that cannot be listened on is event 10228, 10229 or 10230, once; it is retried
// when the port's setting changes, or after notifications were switched off and on.
//
//   NotificationListener listener(stopToken(), sockets, settings);
//   const auto outcome = listener.poll(countdown);
//   if (outcome.byte) ...
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "agent/thread/stop_token.h"
#include "platform/fwd.h"

namespace korvane {

class UpdateSettings;

class NotificationListener {
 public:
  static constexpr int kBacklog = 10;
  static constexpr uint32_t kIdleMs = 1000;
  static constexpr int32_t kMostSeconds = 30;

  struct Outcome {
    bool connected = false;         // somebody connected: the cycle goes on without its pause
    bool waited = false;            // the idle second was spent here
    std::optional<uint8_t> byte{};  // what was sent
  };

  NotificationListener(StopToken& threadStop, platform::Sockets& sockets,
                       const UpdateSettings& settings);
  ~NotificationListener();
  NotificationListener(const NotificationListener&) = delete;
  NotificationListener& operator=(const NotificationListener&) = delete;

  // One look, as the settings have it. countdown: cycles to the next status, -1 without polling.
  [[nodiscard]] Outcome poll(int32_t& countdown);

 private:
  struct Listening;

  void closeListener();
  [[nodiscard]] bool listen();
  [[nodiscard]] bool giveUp();
  [[nodiscard]] Outcome acceptConnection(int32_t& countdown);
  [[nodiscard]] std::optional<uint8_t> readByte(platform::Socket& client, int32_t seconds,
                                                int32_t& waited);
  [[nodiscard]] bool pause(platform::Socket& client, bool untilReadable);

  StopToken& _threadStop;
  platform::Sockets& _sockets;
  const UpdateSettings& _settings;
  int32_t _port = -1;
  bool _failed = false;
  std::unique_ptr<Listening> _listening;
};

}  // namespace korvane
