#include "platform/pipes.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <time.h>

#include <algorithm>
#include <cerrno>

#include "platform/error_codes.h"
#include "platform/interrupt_posix.h"
#include "platform/native.h"
#include "platform/served_pipe.h"
#include "platform/waiting_room_posix.h"

namespace korvane::platform {
namespace {

// Room for 65536 bytes in frames of 4096: the kernel counts its own bookkeeping too.
constexpr int kPipeBytes = 2 * 65536;
// Who stands at the listener until the server looks, and for how long one more waits to stand there.
constexpr int kAtTheListener = 128;
constexpr timeval kWaitToConnect = {0, 100000};

int64_t microseconds(clockid_t clock) {
  timespec now{};
  ::clock_gettime(clock, &now);
  return int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
}

bool goneWith(int error) {
  return error == EPIPE || error == ECONNRESET || error == ENOTCONN;
}

uint32_t addressOf(const std::string& path, sockaddr_un& out) {
  out = {};
  out.sun_family = AF_UNIX;
  if (path.size() >= sizeof out.sun_path) return kErrorFileNameTooLong;
  std::copy(path.begin(), path.end(), out.sun_path);
  return kOk;
}

const sockaddr* generic(const sockaddr_un& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

Descriptor makeSocket(int flags = 0) {
  return Descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
}

uint32_t connectTo(const sockaddr_un& address, Descriptor& out) {
  Descriptor made = makeSocket();
  if (!made) return kErrorNotEnoughMemory;
  // It blocks for its connect alone: so it has its turn among others at a full listener.
  ::setsockopt(made.get(), SOL_SOCKET, SO_SNDTIMEO, &kWaitToConnect, sizeof kWaitToConnect);
  if (::connect(made.get(), generic(address), sizeof address) == 0) {
    if (::fcntl(made.get(), F_SETFL, O_NONBLOCK) != 0) return kErrorGenFailure;
    out = std::move(made);
    return kOk;
  }
  switch (errno) {
    case EAGAIN:
      return kErrorPipeBusy;
    case EACCES:
    case EPERM:
      return kErrorAccessDenied;
    default:
      return kErrorFileNotFound;
  }
}

// One connection. The client's end as it stands; the server's end takes its client from a listener.
class PosixPipe : public Pipe {
 public:
  explicit PosixPipe(Descriptor connection = Descriptor()) { use(std::move(connection)); }

  bool valid() const { return _interrupt.valid(); }

  uint32_t peek(size_t& available) override {
    available = 0;
    if (!connected()) return kErrorBadPipe;
    int count = 0;
    if (::ioctl(_connection.get(), FIONREAD, &count) != 0) return kErrorBrokenPipe;
    available = static_cast<size_t>(count);
    if (count > 0) return kOk;
    char byte;
    const ssize_t seen = ::recv(_connection.get(), &byte, 1, MSG_PEEK);
    if (seen < 0 && (errno == EAGAIN || errno == EINTR)) return kOk;
    if (seen <= 0) return kErrorBrokenPipe;
    available = 1;
    return kOk;
  }

  uint32_t read(void* buffer, size_t size, size_t& got) override {
    got = 0;
    if (!connected()) return kErrorPipeListening;
    const ssize_t n = ::recv(_connection.get(), buffer, size, 0);
    if (n < 0 && (errno == EAGAIN || errno == EINTR)) return kErrorNoData;
    if (n <= 0) return kErrorBrokenPipe;
    got = static_cast<size_t>(n);
    return kOk;
  }

  uint32_t write(const void* bytes, size_t size, size_t& written) override {
    written = 0;
    if (!connected()) return kErrorPipeListening;
    const ssize_t n = ::send(_connection.get(), bytes, size, MSG_NOSIGNAL);
    if (n >= 0) {
      written = static_cast<size_t>(n);
      return kOk;
    }
    if (errno == EAGAIN || errno == EINTR) return kOk;
    return goneWith(errno) ? kErrorNoData : kErrorGenFailure;
  }

  PipeWait wait(PipeEvent event, uint32_t timeoutMs) override {
    return pollFor(_connection.get(), eventsFor(event), Deadline(timeoutMs), _interrupt) ==
                   PollResult::interrupted
               ? PipeWait::interrupted
               : PipeWait::ended;
  }

  bool peerIsAdministrator() override {
    uid_t account = 0;
    return _connection && accountOf(_connection.get(), account) && isAdministrator(account);
  }

  bool wakes() const override { return true; }

  uint32_t renew() override { return kErrorInvalidHandle; }

  void interrupt() override { _interrupt.raise(); }

 protected:
  virtual bool connected() { return true; }

  static short eventsFor(PipeEvent event) {
    return event == PipeEvent::writable ? POLLOUT : POLLIN;
  }
  bool hasConnection() const { return static_cast<bool>(_connection); }
  int connection() const { return _connection.get(); }
  const Interrupt& interruption() const { return _interrupt; }
  void use(Descriptor connection) {
    _connection = std::move(connection);
    if (_connection)
      ::setsockopt(_connection.get(), SOL_SOCKET, SO_SNDBUF, &kPipeBytes, sizeof kPipeBytes);
  }

 private:
  Descriptor _connection;
  Interrupt _interrupt;
};

class PosixPipeServer final : public ServedPipe<PosixPipe, WaitingRoom> {
 public:
  PosixPipeServer(std::string path, PipeAudience audience, Descriptor listener, Descriptor lock)
      : ServedPipe(audience),
        _path(std::move(path)),
        _lock(std::move(lock)),
        _listener(std::move(listener)) {}
  ~PosixPipeServer() override { ::unlink(_path.c_str()); }

  PipeWait wait(PipeEvent event, uint32_t timeoutMs) override {
    const Deadline deadline(timeoutMs);
    for (settle(); !mustGiveWay(); settle()) {
      if (!hasConnection()) admit();
      if (!hasConnection() && mayServe()) break;
      const int listener = _refused || !_room.admits() ? -1 : _listener.get();
      int which = -1;
      const int client = pauseMs() > 0 ? -1 : connection();
      const PollResult result = pollForEither(client, eventsFor(event), listener,
                                              nextLook(deadline), interruption(), which);
      const bool knocked = result == PollResult::ready && which == listener;
      if (knocked) admit();
      if (!knocked && (result != PollResult::timedOut || deadline.remainingMs() == 0)) break;
    }
    return interruption().raised() ? PipeWait::interrupted : PipeWait::ended;
  }

 protected:
  // Without a descriptor left the listener would be ready all the time, for a client that cannot be
  // taken: then a wait is a pause.
  void admit() override { _refused = !_room.admit(_listener.get(), _allowance.pauseMs() > 0); }

  void settle() override {
    if (_audience == PipeAudience::everyone)
      _allowance.settle(!hasConnection() || servesOrdinary(), microseconds(CLOCK_MONOTONIC),
                        microseconds(CLOCK_THREAD_CPUTIME_ID));
  }

 private:
  // When to look again before the deadline: the pause of a flood or of ordinary callers is over, or
  // an ordinary client's turn.
  Deadline nextLook(const Deadline& deadline) const {
    int soonest = deadline.remainingMs();
    const auto within = [&soonest](int ms) {
      if (soonest < 0 || ms < soonest) soonest = ms;
    };
    if (const uint32_t pause = _room.pauseMs()) within(static_cast<int>(pause));
    if (const uint32_t pause = pauseMs()) within(static_cast<int>(pause));
    if (hasConnection() && _room.administratorWaits()) within(turnLeftMs());
    return soonest < 0 ? Deadline(kInfinite) : Deadline(static_cast<uint32_t>(soonest));
  }

  const std::string _path;
  const Descriptor
      _lock;  // held for as long as the name is served; let go by the process's end, too
  const Descriptor _listener;
  bool _refused = false;
};

class PosixPipes final : public Pipes {
 public:
  explicit PosixPipes(std::string directory) : _directory(std::move(directory)) {}

  uint32_t create(const std::string& name, PipeAudience audience,
                  std::unique_ptr<Pipe>& out) override {
    sockaddr_un address;
    if (const uint32_t error = locate(name, address)) return error;
    const std::string path = address.sun_path;
    Descriptor lock(
        ::open((path + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!lock) return errno == EACCES ? kErrorAccessDenied : kErrorPathNotFound;
    if (::flock(lock.get(), LOCK_EX | LOCK_NB) != 0) return kErrorPipeBusy;
    ::unlink(path.c_str());  // of a server that was killed
    Descriptor listener = makeSocket(SOCK_NONBLOCK);
    if (!listener) return kErrorNotEnoughMemory;
    if (::bind(listener.get(), generic(address), sizeof address) != 0 ||
        ::chmod(path.c_str(), audience == PipeAudience::everyone ? 0666 : 0600) != 0 ||
        ::listen(listener.get(), kAtTheListener) != 0)
      return errno == EACCES ? kErrorAccessDenied : kErrorGenFailure;
    auto made =
        std::make_unique<PosixPipeServer>(path, audience, std::move(listener), std::move(lock));
    if (!made->valid()) return kErrorNotEnoughMemory;
    out = std::move(made);
    return kOk;
  }

  uint32_t open(const std::string& name, std::unique_ptr<Pipe>& out) override {
    sockaddr_un address;
    if (const uint32_t error = locate(name, address)) return error;
    Descriptor connection;
    if (const uint32_t error = connectTo(address, connection)) return error;
    if (!servedByTrusted(connection.get())) return kErrorAccessDenied;
    auto made = std::make_unique<PosixPipe>(std::move(connection));
    if (!made->valid()) return kErrorNotEnoughMemory;
    out = std::move(made);
    return kOk;
  }

 private:
  // Nothing is sent to a socket that somebody else has put in the server's place.
  bool servedByTrusted(int connection) const {
    uid_t server = 0;
    struct stat directory {};
    return accountOf(connection, server) &&
           (isAdministrator(server) ||
            (::stat(_directory.c_str(), &directory) == 0 && directory.st_uid == server));
  }

  uint32_t locate(const std::string& name, sockaddr_un& address) const {
    if (_directory.empty()) return kErrorPathNotFound;
    const std::string bare = barePipeName(name);
    if (bare.empty() || bare.find_first_of(std::string("/\0", 2)) != std::string::npos)
      return kErrorInvalidName;
    return addressOf(_directory + "/" + bare + ".pipe", address);
  }

  const std::string _directory;
};

}  // namespace

std::unique_ptr<Pipes> makeNativePipes(const NativeOptions& options) {
  return std::make_unique<PosixPipes>(options.runDirectory);
}

}  // namespace korvane::platform
