// What an attached carrier says on the event channel, a message a line: whatever it is, what is heard
// of it is one of the signals with its fields, and a broken message ends the connection.
#include <algorithm>
#include <cstdlib>
#include <string>

#include "logs/event_channel.h"
#include "platform/fake/fake_platform.h"

namespace {

using namespace korvane;

class Carrier final : public RPCTransportBase {
 public:
  explicit Carrier(std::string_view lines) : _lines(lines) {}
  bool start() override { return true; }
  RPCReceive receive(std::string& message, int) override {
    if (!_attachSent) {
      _attachSent = true;
      message = R"({"jsonrpc":"2.0","id":1,"name":"attach"})";
      return RPCReceive::message;
    }
    if (_lines.empty()) return RPCReceive::nothing;
    const size_t end = std::min(_lines.find('\n'), _lines.size());
    message = _lines.substr(0, end);
    _lines.remove_prefix(std::min(end + 1, _lines.size()));
    return RPCReceive::message;
  }
  bool send(const std::string&) override { return true; }
  void drop() override { ++_connection, _attachSent = false; }
  bool hasPeer() override { return true; }
  bool peerIsAdministrator() override { return true; }
  uint64_t connection() const override { return _connection; }
  size_t messageBytes() const override { return 8u << 20; }
  uint32_t lastError() const override { return 0; }
  void interrupt() override {}
  bool said() const { return _lines.empty(); }

 private:
  std::string_view _lines;
  bool _attachSent = false;
  uint64_t _connection = 1;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static platform::FakePlatform fake;
  static const platform::CurrentPlatform current(fake.platform());
  Carrier carrier({reinterpret_cast<const char*>(data), size});
  EventChannel channel(carrier, fake.clock);
  while (!carrier.said()) {
    const uint64_t before = carrier.connection();
    const EventChannel::Heard heard = channel.receive(0);
    if (heard.signal == EventChannel::Signal::gone && before == carrier.connection()) std::abort();
    if (heard.signal == EventChannel::Signal::none && !heard.identifier.empty()) std::abort();
    if (heard.delayMs && *heard.delayMs < 0) std::abort();
  }
  return 0;
}
