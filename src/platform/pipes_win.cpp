#include "platform/pipes_win.h"

#include "platform/caller_allowance.h"
#include "platform/error_codes.h"
#include "platform/interrupt_win.h"
#include "platform/native.h"
#include "platform/thread_time_win.h"
#include "platform/waiting_room_win.h"
#include "platform/wide_win.h"

namespace korvane::platform {
namespace {

constexpr wchar_t kPipePrefix[] = L"\\\\.\\pipe\\";
// What a client asks for: all that authenticated users have.
constexpr DWORD kClientsRights = GENERIC_READ | FILE_WRITE_DATA | FILE_WRITE_ATTRIBUTES;
// How long a client waits for a door.
constexpr DWORD kWaitToConnectMs = 100;

FileHandle openClientsEnd(const std::wstring& name) {
  const ULONGLONG end = ::GetTickCount64() + kWaitToConnectMs;
  for (;;) {
    FileHandle handle(::CreateFileW(name.c_str(), kClientsRights, /*dwShareMode=*/0, nullptr,
                                    OPEN_EXISTING, 0, nullptr));
    if (handle || ::GetLastError() != ERROR_PIPE_BUSY) return handle;
    const ULONGLONG now = ::GetTickCount64();
    if (now >= end) return handle;
    // Whether there is a door now, or the name is no longer served, is what the next try tells.
    if (!::WaitNamedPipeW(name.c_str(), static_cast<DWORD>(end - now) + 1) &&
        ::GetLastError() == ERROR_SEM_TIMEOUT) {
      ::SetLastError(ERROR_PIPE_BUSY);
      return handle;
    }
  }
}

// One connection. The client's end as it stands; the server's end takes its client from the doors.
class WinPipe : public Pipe {
 public:
  explicit WinPipe(FileHandle handle = FileHandle()) : _handle(std::move(handle)) {}

  bool valid() const { return _interrupt.valid(); }

  uint32_t peek(size_t& available) override {
    DWORD count = 0;
    available = 0;
    if (!connected()) return kErrorBadPipe;
    if (!::PeekNamedPipe(_handle.get(), nullptr, 0, nullptr, &count, nullptr))
      return ::GetLastError();
    available = count;
    return kOk;
  }

  uint32_t read(void* buffer, size_t size, size_t& got) override {
    DWORD count = 0;
    got = 0;
    if (!connected()) return kErrorPipeListening;
    if (!::ReadFile(_handle.get(), buffer, static_cast<DWORD>(size), &count, nullptr))
      return ::GetLastError();
    got = count;
    return count == 0 && size > 0 ? kErrorNoData : kOk;
  }

  uint32_t write(const void* bytes, size_t size, size_t& written) override {
    DWORD count = 0;
    written = 0;
    if (!connected()) return kErrorPipeListening;
    if (!::WriteFile(_handle.get(), bytes, static_cast<DWORD>(size), &count, nullptr))
      return ::GetLastError();
    written = count;
    return kOk;
  }

  PipeWait wait(PipeEvent, uint32_t timeoutMs) override {
    return ::WaitForSingleObjectEx(_interrupt.event(), timeoutMs, /*bAlertable=*/TRUE) ==
                   WAIT_OBJECT_0
               ? PipeWait::interrupted
               : PipeWait::ended;
  }

  bool peerIsAdministrator() override { return _handle && clientIsAdministrator(_handle.get()); }

  uint32_t renew() override { return kErrorInvalidHandle; }

  void interrupt() override { _interrupt.raise(); }

 protected:
  virtual bool connected() { return true; }

  bool hasConnection() const { return static_cast<bool>(_handle); }
  void use(FileHandle handle) { _handle = std::move(handle); }

 private:
  FileHandle _handle;
  WinInterrupt _interrupt;
};

class WinPipeServer final : public WinPipe {
 public:
  WinPipeServer(std::wstring name, PipeAudience audience, ClientAccountOf accountOf)
      : _audience(audience), _room(std::move(name), audience, std::move(accountOf)) {}

  [[nodiscard]] uint32_t open() { return _room.open(); }

  uint32_t peek(size_t& available) override {
    available = 0;
    settle();
    if (mustGiveWay()) return kErrorBrokenPipe;
    return hasConnection() && pauseMs() > 0 ? kOk : WinPipe::peek(available);
  }

  uint32_t write(const void* bytes, size_t size, size_t& written) override {
    written = 0;
    settle();
    if (mustGiveWay()) return kErrorNoData;
    return hasConnection() && pauseMs() > 0 ? kOk : WinPipe::write(bytes, size, written);
  }

  PipeWait wait(PipeEvent event, uint32_t timeoutMs) override {
    settle();
    if (hasConnection()) admit();
    return WinPipe::wait(event, timeoutMs);
  }

  uint32_t renew() override {
    settle();
    use(FileHandle());
    return kOk;
  }

 protected:
  bool connected() override {
    if (hasConnection()) return true;
    admit();
    if (!mayServe()) return false;
    WaitingRoom::Places::Caller next = _room.next();
    _ordinary = !next.administrator;
    _turnEnds = ::GetTickCount64() + kTurnMs;
    use(std::move(next.connection));
    return true;
  }

 private:
  void admit() { _room.admit(_allowance.pauseMs() > 0); }

  // An ordinary client has had its turn, and an administrator waits. While an administrator is
  // served, only a wait looks at the doors: the others wait in any case.
  bool mustGiveWay() {
    if (!hasConnection() || !_ordinary) return false;
    admit();
    return _room.administratorWaits() && ::GetTickCount64() >= _turnEnds;
  }

  // What the thread did since the last time, but for an administrator, ordinary callers have cost.
  // While there is nobody nothing is measured.
  void settle() {
    if (_audience != PipeAudience::everyone) return;
    const bool anybody = hasConnection() || !_room.empty();
    if (anybody || _measured)
      _allowance.settle(_measured && (!hasConnection() || _ordinary), _time.wallUs(),
                        _time.cpuUs());
    _measured = anybody;
  }
  // For how long no ordinary caller is served; 0 while an administrator is.
  uint32_t pauseMs() const { return hasConnection() && !_ordinary ? 0 : _allowance.pauseMs(); }
  bool mayServe() const {
    return _room.administratorWaits() || (!_room.empty() && _allowance.pauseMs() == 0);
  }

  const PipeAudience _audience;
  WaitingRoom _room;
  ThreadTime _time;
  CallerAllowance _allowance;
  bool _measured = false;
  bool _ordinary = false;   // the present client
  ULONGLONG _turnEnds = 0;  // until when it has its turn whoever waits
};

template <class Made>
uint32_t handOut(std::unique_ptr<Made> made, std::unique_ptr<Pipe>& out) {
  if (!made->valid()) return kErrorNotEnoughMemory;
  out = std::move(made);
  return kOk;
}

class WinPipes final : public Pipes {
 public:
  explicit WinPipes(ClientAccountOf accountOf) : _accountOf(std::move(accountOf)) {}

  uint32_t create(const std::string& name, PipeAudience audience,
                  std::unique_ptr<Pipe>& out) override {
    const std::string bare = barePipeName(name);
    if (bare.empty()) return kErrorInvalidName;
    auto made = std::make_unique<WinPipeServer>(kPipePrefix + wide(bare), audience, _accountOf);
    if (const uint32_t error = made->open()) return error;
    return handOut(std::move(made), out);
  }

  // Who serves a pipe may act with the rights of a client whose bytes it has read: nothing is
  // sent to a pipe that somebody without rights has made.
  uint32_t open(const std::string& name, std::unique_ptr<Pipe>& out) override {
    const std::string bare = barePipeName(name);
    if (bare.empty()) return kErrorInvalidName;
    FileHandle handle = openClientsEnd(kPipePrefix + wide(bare));
    if (!handle) return ::GetLastError();
    if (!isServedByTrusted(handle.get())) return kErrorAccessDenied;
    DWORD mode = PIPE_READMODE_BYTE | PIPE_NOWAIT;
    if (!::SetNamedPipeHandleState(handle.get(), &mode, nullptr, nullptr)) return ::GetLastError();
    return handOut(std::make_unique<WinPipe>(std::move(handle)), out);
  }

 private:
  const ClientAccountOf _accountOf;
};

}  // namespace

std::unique_ptr<Pipes> makeWinPipes(ClientAccountOf accountOf) {
  return std::make_unique<WinPipes>(std::move(accountOf));
}

std::unique_ptr<Pipes> makeNativePipes(const NativeOptions&) {
  return makeWinPipes(accountOfClientsProcess);
}

}  // namespace korvane::platform
