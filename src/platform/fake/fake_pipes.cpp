#include "platform/fake/fake_pipes.h"

#include <algorithm>
#include <cstring>

#include "platform/error_codes.h"

namespace korvane::platform {
namespace {

constexpr size_t kPipeBytes = 65536;

}  // namespace

// One end; all ends share the mutex of their names. `changed` is set whenever something happened
// that a wait of this end may be for.
struct FakePipeEnd {
  explicit FakePipeEnd(Threading& threading) : changed(threading.createEvent(true, false)) {}

  const std::unique_ptr<Event> changed;
  std::atomic<bool> interrupted{false};
  std::string received;
  std::weak_ptr<FakePipeEnd> peer;
  bool hadPeer = false;
  PipeAudience audience = PipeAudience::everyone;  // of a server's end
};

struct FakePipeNames {
  explicit FakePipeNames(Threading& source) : threading(source) {}

  Threading& threading;
  std::atomic<bool> clientsAreAdministrators{true};
  std::atomic<bool> wakes{false};
  FakeMutex mutex;
  std::map<std::string, std::weak_ptr<FakePipeEnd>> servers GUARDED_BY(mutex);
};

namespace {

class FakePipe final : public Pipe {
 public:
  FakePipe(std::shared_ptr<FakePipeNames> names, std::shared_ptr<FakePipeEnd> end)
      : _names(std::move(names)), _end(std::move(end)) {}

  ~FakePipe() override {
    FakeLock lock(_names->mutex);
    const auto peer = _end->peer.lock();
    _end.reset();
    if (peer) peer->changed->set();
  }

  uint32_t peek(size_t& available) override {
    FakeLock lock(_names->mutex);
    available = _end->received.size();
    if (available > 0) return kOk;
    if (!_end->hadPeer) return kErrorBadPipe;
    return _end->peer.expired() ? kErrorBrokenPipe : kOk;
  }

  uint32_t read(void* buffer, size_t size, size_t& got) override {
    FakeLock lock(_names->mutex);
    got = std::min(size, _end->received.size());
    std::memcpy(buffer, _end->received.data(), got);
    _end->received.erase(0, got);
    const auto peer = _end->peer.lock();
    if (peer && got > 0) peer->changed->set();
    if (got > 0) return kOk;
    if (!_end->hadPeer) return kErrorPipeListening;
    return peer ? kErrorNoData : kErrorBrokenPipe;
  }

  uint32_t write(const void* bytes, size_t size, size_t& written) override {
    FakeLock lock(_names->mutex);
    written = 0;
    if (!_end->hadPeer) return kErrorPipeListening;
    const auto peer = _end->peer.lock();
    if (!peer) return kErrorNoData;
    if (peer->received.size() + size > kPipeBytes) return kOk;
    peer->received.append(static_cast<const char*>(bytes), size);
    peer->changed->set();
    written = size;
    return kOk;
  }

  PipeWait wait(PipeEvent event, uint32_t timeoutMs) override {
    if (!_end->interrupted) {
      {
        FakeLock lock(_names->mutex);
        if (happened(event)) return PipeWait::ended;
        _end->changed->reset();
      }
      if (!_end->interrupted) _end->changed->wait(timeoutMs);
    }
    return _end->interrupted ? PipeWait::interrupted : PipeWait::ended;
  }

  bool peerIsAdministrator() override { return _names->clientsAreAdministrators; }
  bool wakes() const override { return _names->wakes; }

  uint32_t renew() override {
    FakeLock lock(_names->mutex);
    const bool serves = std::any_of(_names->servers.begin(), _names->servers.end(),
                                    [&](const auto& named) { return named.second.lock() == _end; });
    if (!serves) return kErrorInvalidHandle;
    if (const auto client = _end->peer.lock()) {
      client->peer.reset();
      client->changed->set();
    }
    _end->peer.reset();
    _end->hadPeer = false;
    _end->received.clear();
    return kOk;
  }

  void interrupt() override {
    _end->interrupted = true;
    _end->changed->set();
  }

 private:
  bool happened(PipeEvent event) const {
    const auto peer = _end->peer.lock();
    if (_end->hadPeer && !peer) return true;
    if (event == PipeEvent::readable) return !_end->received.empty();
    return peer && peer->received.size() < kPipeBytes;
  }

  const std::shared_ptr<FakePipeNames> _names;
  std::shared_ptr<FakePipeEnd> _end;
};

}  // namespace

FakePipes::FakePipes(Threading& threading) : _names(std::make_shared<FakePipeNames>(threading)) {}

FakePipes::~FakePipes() = default;

uint32_t FakePipes::create(const std::string& name, PipeAudience audience,
                           std::unique_ptr<Pipe>& out) {
  const std::string bare = barePipeName(name);
  if (bare.empty()) return kErrorInvalidName;
  FakeLock lock(_names->mutex);
  std::weak_ptr<FakePipeEnd>& server = _names->servers[bare];
  if (!server.expired()) return kErrorPipeBusy;
  auto end = std::make_shared<FakePipeEnd>(_names->threading);
  end->audience = audience;
  server = end;
  out = std::make_unique<FakePipe>(_names, std::move(end));
  return kOk;
}

uint32_t FakePipes::open(const std::string& name, std::unique_ptr<Pipe>& out) {
  FakeLock lock(_names->mutex);
  const auto found = _names->servers.find(barePipeName(name));
  const auto server = found == _names->servers.end() ? nullptr : found->second.lock();
  if (!server) return kErrorFileNotFound;
  if (server->audience == PipeAudience::administrators && !_names->clientsAreAdministrators)
    return kErrorAccessDenied;
  if (server->hadPeer) return kErrorPipeBusy;
  auto end = std::make_shared<FakePipeEnd>(_names->threading);
  end->peer = server;
  end->hadPeer = true;
  server->peer = end;
  server->hadPeer = true;
  server->changed->set();
  out = std::make_unique<FakePipe>(_names, std::move(end));
  return kOk;
}

void FakePipes::setClientsAreAdministrators(bool are) {
  _names->clientsAreAdministrators = are;
}

void FakePipes::setWakes(bool wakes) {
  _names->wakes = wakes;
}

}  // namespace korvane::platform
