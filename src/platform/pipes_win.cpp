#include "platform/pipes_win.h"

#include "platform/error_codes.h"
#include "platform/interrupt_win.h"
#include "platform/native.h"
#include "platform/served_pipe.h"
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

class WinPipeServer final : public ServedPipe<WinPipe, WaitingRoom> {
 public:
  WinPipeServer(std::wstring name, PipeAudience audience, ClientAccountOf accountOf)
      : ServedPipe(audience, std::move(name), audience, std::move(accountOf)) {}

  [[nodiscard]] uint32_t open() { return _room.open(); }

  PipeWait wait(PipeEvent event, uint32_t timeoutMs) override {
    settle();
    if (hasConnection()) admit();
    return WinPipe::wait(event, timeoutMs);
  }

 protected:
  void admit() override { _room.admit(_allowance.pauseMs() > 0); }

  // While there is nobody nothing is measured.
  void settle() override {
    if (_audience != PipeAudience::everyone) return;
    const bool anybody = hasConnection() || !_room.empty();
    if (anybody || _measured)
      _allowance.settle(_measured && (!hasConnection() || servesOrdinary()), _time.wallUs(),
                        _time.cpuUs());
    _measured = anybody;
  }

 private:
  ThreadTime _time;
  bool _measured = false;
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
