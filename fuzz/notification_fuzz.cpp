// What clients of the notification port may do: pairs of bytes, the first one what the socket
// answers, the second one the byte that it gives.
#include <cstddef>
#include <cstdint>
#include <optional>

#include "config/agent_config.h"
#include "config/install_root.h"
#include "config/settings.h"
#include "platform/fake/fake_platform.h"
#include "tests/update/scripted_sockets.h"
#include "update/notification_listener.h"
#include "update/pending_updates.h"

namespace korvane {
namespace {

using tests::ScriptedSockets;

// An agent with a notification port, on simulated time.
struct Port {
  Port() {
    setInstallRoot("/opt/korvane");
    fake.files.put("/opt/korvane/IPS/agent.ini", "[TCP]\ntcp.enabled=true\ntcp.port=2222\n");
  }
  platform::SimThreading sim{1};
  platform::FakePlatform fake{sim};
  platform::CurrentPlatform own{fake.platform()};
  ScriptedSockets sockets{fake.sockets};
};

void check(bool holds) {
  if (!holds) __builtin_trap();
}

std::optional<uint8_t> firstByte(const ScriptedSockets::Client& client) {
  for (const ScriptedSockets::Receive& step : client)
    if (step.error == 0) return step.byte < 0 ? std::nullopt : std::optional(uint8_t(step.byte));
  return std::nullopt;
}

std::deque<ScriptedSockets::Client> clientsOf(const uint8_t* data, size_t size) {
  std::deque<ScriptedSockets::Client> clients(1);
  for (size_t i = 0; i + 1 < size; i += 2) {
    switch (data[i] % 5) {
      case 0:
        clients.back().push_back({0, data[i + 1]});
        break;
      case 1:
        clients.back().push_back({platform::kWsaWouldBlock, 0});
        break;
      case 2:
        clients.back().push_back({platform::kWsaConnectionReset, 0});
        break;
      case 3:
        clients.back().push_back({0, -1});
        break;
      default:
        clients.emplace_back();
    }
  }
  return clients;
}

int flagsOf(const PendingUpdates& pending) {
  return pending.configuration * 1 + pending.policy * 2 + pending.software * 4 +
         pending.idsPolicy * 8 + pending.idsConfiguration * 16;
}

}  // namespace
}  // namespace korvane

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace korvane;
  static Port& port = *new Port;
  if (size == 0) return 0;
  StopToken stop;
  NotificationListener listener(stop, port.sockets,
                                settingsOf(*AgentConfig::getInstance()).updates);
  PendingUpdates pending;
  int flags = 0;
  int32_t countdown = static_cast<int8_t>(data[0]);
  if (countdown < 0) countdown = -1;
  port.sockets.clients = clientsOf(data + 1, size - 1);
  while (!port.sockets.clients.empty()) {
    const auto expected = firstByte(port.sockets.clients.front());
    const int32_t before = countdown;
    const auto outcome = listener.poll(countdown);
    check(outcome.connected && port.sockets.open == 1);
    check(countdown == before ||
          (countdown >= 0 && countdown < before && before - countdown <= 30));
    check(!outcome.byte || outcome.byte == expected);
    if (outcome.byte && pending.acceptNotification(*outcome.byte)) flags |= *outcome.byte & 0x1F;
    check(flagsOf(pending) == flags);
  }
  return 0;
}
