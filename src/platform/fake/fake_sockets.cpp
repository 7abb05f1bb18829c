#include "platform/fake/fake_sockets.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <deque>
#include <map>

#include "platform/error_codes.h"
#include "platform/fake/fake_lock.h"

namespace korvane::platform {
namespace {

constexpr uint16_t kFirstFreePort = 49152;
constexpr size_t kBufferBytes = 64 * 1024;

bool isDotted(const std::string& text) {
  return std::count(text.begin(), text.end(), '.') == 3 &&
         text.find_first_not_of("0123456789.") == std::string::npos;
}

}  // namespace

// One end of a connection, or a listener. All ends of a network share its mutex; `changed` is set
// whenever something happened that a wait of this end may be for.
struct FakeEnd {
  explicit FakeEnd(Threading& threading) : changed(threading.createEvent(true, false)) {}

  const std::unique_ptr<Event> changed;
  std::atomic<bool> interrupted{false};
  std::string received;
  std::weak_ptr<FakeEnd> peer;
  std::deque<std::shared_ptr<FakeEnd>> backlog;
  size_t backlogLimit = 0;
  uint16_t port = 0;
  bool listening = false;
  bool connected = false;
  bool peerClosed = false;
  bool shut = false;
};

struct FakeNetwork {
  explicit FakeNetwork(Threading& source) : threading(source) {}

  Threading& threading;
  FakeMutex mutex;
  std::map<uint16_t, std::weak_ptr<FakeEnd>> ports GUARDED_BY(mutex);
  uint16_t nextPort GUARDED_BY(mutex) = kFirstFreePort;

  bool inUse(uint16_t port) REQUIRES(mutex) {
    const auto found = ports.find(port);
    return found != ports.end() && !found->second.expired();
  }

  void closePeer(FakeEnd& end) REQUIRES(mutex) {
    if (const auto peer = end.peer.lock()) {
      peer->peerClosed = true;
      peer->changed->set();
    }
    for (const auto& waiting : end.backlog) closePeer(*waiting);
  }
};

namespace {

class FakeSocket final : public Socket {
 public:
  FakeSocket(std::shared_ptr<FakeNetwork> network, std::shared_ptr<FakeEnd> end)
      : _network(std::move(network)), _end(std::move(end)) {}

  ~FakeSocket() override {
    FakeLock lock(_network->mutex);
    _network->closePeer(*_end);
    if (_end->listening) _network->ports.erase(_end->port);
  }

  int bind(bool, uint16_t port) override {
    FakeLock lock(_network->mutex);
    while (port == 0) {
      const uint16_t candidate = _network->nextPort++;
      if (candidate && !_network->inUse(candidate)) port = candidate;
    }
    if (_network->inUse(port)) return kWsaAddressInUse;
    _network->ports[port] = _end;
    _end->port = port;
    return 0;
  }

  int listen(int backlog) override {
    FakeLock lock(_network->mutex);
    if (_end->port == 0) return kWsaInvalidArgument;
    _end->listening = true;
    _end->backlogLimit = static_cast<size_t>(std::max(1, backlog));
    return 0;
  }

  uint16_t localPort() override {
    FakeLock lock(_network->mutex);
    return _end->port;
  }

  SocketWait waitReadable(uint32_t timeoutMs, int& error) override {
    error = 0;
    for (;;) {
      if (_end->interrupted) return SocketWait::interrupted;
      {
        FakeLock lock(_network->mutex);
        if (readable()) return SocketWait::ready;
        _end->changed->reset();
      }
      if (_end->interrupted) return SocketWait::interrupted;
      if (_end->changed->wait(timeoutMs) != WaitResult::signalled) return SocketWait::timedOut;
    }
  }

  int accept(std::unique_ptr<Socket>& out) override {
    if (const int error = awaitInput()) return error;
    FakeLock lock(_network->mutex);
    if (!_end->listening) return kWsaInvalidArgument;
    if (_end->backlog.empty()) return kWsaWouldBlock;
    out = std::make_unique<FakeSocket>(_network, _end->backlog.front());
    _end->backlog.pop_front();
    return 0;
  }

  int connect(const std::string& address, uint16_t port, uint32_t) override {
    if (!isDotted(address)) return kWsaInvalidArgument;
    if (_end->interrupted) return kWsaInterrupted;
    FakeLock lock(_network->mutex);
    if (_end->connected) return kWsaIsConnected;
    const auto listener = _network->inUse(port) ? _network->ports[port].lock() : nullptr;
    if (!listener || !listener->listening || listener->backlog.size() >= listener->backlogLimit)
      return kWsaConnectionRefused;
    auto other = std::make_shared<FakeEnd>(_network->threading);
    other->peer = _end;
    other->connected = true;
    other->port = port;
    _end->peer = other;
    _end->connected = true;
    listener->backlog.push_back(std::move(other));
    listener->changed->set();
    return 0;
  }

  int setNonBlocking(bool on) override {
    _nonBlocking = on;
    return 0;
  }

  int receive(void* buffer, size_t size, size_t& got) override {
    got = 0;
    if (const int error = awaitInput()) return error;
    FakeLock lock(_network->mutex);
    if (!_end->connected) return kWsaNotConnected;
    if (_end->received.empty() && !_end->peerClosed && !_end->shut) return kWsaWouldBlock;
    got = std::min(size, _end->received.size());
    std::memcpy(buffer, _end->received.data(), got);
    _end->received.erase(0, got);
    return 0;
  }

  // A full peer takes nothing, in either mode: a test that sends more than the buffer has to read.
  int send(const void* bytes, size_t size, size_t& sent) override {
    sent = 0;
    FakeLock lock(_network->mutex);
    if (!_end->connected) return kWsaNotConnected;
    const auto peer = _end->peer.lock();
    if (!peer || _end->shut || peer->shut) return kWsaConnectionReset;
    sent = std::min(size, kBufferBytes - std::min(kBufferBytes, peer->received.size()));
    peer->received.append(static_cast<const char*>(bytes), sent);
    peer->changed->set();
    return sent == 0 && size > 0 ? kWsaWouldBlock : 0;
  }

  int shutdownBoth() override {
    FakeLock lock(_network->mutex);
    if (!_end->connected) return kWsaNotConnected;
    _end->shut = true;
    _network->closePeer(*_end);
    _end->changed->set();
    return 0;
  }

  void interrupt() override {
    _end->interrupted = true;
    _end->changed->set();
  }

 private:
  bool readable() const {
    return !_end->backlog.empty() || !_end->received.empty() || _end->peerClosed || _end->shut;
  }

  // In blocking mode waits until there is something to take.
  int awaitInput() {
    {
      FakeLock lock(_network->mutex);
      if (_nonBlocking || !(_end->listening || _end->connected)) return 0;
    }
    int error = 0;
    const SocketWait waited = waitReadable(kInfinite, error);
    return waited == SocketWait::ready ? 0 : kWsaInterrupted;
  }

  const std::shared_ptr<FakeNetwork> _network;
  const std::shared_ptr<FakeEnd> _end;
  bool _nonBlocking = false;
};

}  // namespace

FakeSockets::FakeSockets(Threading& threading)
    : _network(std::make_shared<FakeNetwork>(threading)),
      _resolverAnswers(threading.createEvent(true, true)) {}

FakeSockets::~FakeSockets() = default;

int FakeSockets::createTcp(std::unique_ptr<Socket>& out) {
  out = std::make_unique<FakeSocket>(_network, std::make_shared<FakeEnd>(_network->threading));
  return 0;
}

int FakeSockets::resolve(const std::string& host, std::vector<std::string>& out) {
  out.clear();
  _resolverAnswers->wait(kInfinite);
  if (host != "localhost" && !isDotted(host)) return kWsaHostNotFound;
  out.push_back(host == "localhost" ? "127.0.0.1" : host);
  return 0;
}

void FakeSockets::setResolverHangs(bool hangs) {
  if (hangs)
    _resolverAnswers->reset();
  else
    _resolverAnswers->set();
}

}  // namespace korvane::platform
