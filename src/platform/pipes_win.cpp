#include "platform/pipes.h"

#include <sddl.h>

#include "platform/error_codes.h"
#include "platform/handles_win.h"
#include "platform/interrupt_win.h"
#include "platform/native.h"
#include "platform/wide_win.h"

namespace korvane::platform {
namespace {

constexpr DWORD kPipeBytes = 65536;
constexpr wchar_t kPrefix[] = L"\\\\.\\pipe\\";
// SYSTEM and Administrators: all; authenticated users: read and write; nothing is inherited.
constexpr wchar_t kAccess[] = L"D:P(A;;GA;;;SY)(A;;GA;;;BA)(A;;GRGW;;;AU)";

struct LocalMemoryKind {
  using Value = void*;
  static Value empty() { return nullptr; }
  static void close(Value value) { ::LocalFree(value); }
};
using LocalMemory = OwnedHandle<LocalMemoryKind>;

// The client's account for the calling thread, as long as the object lives.
class ActingAsClient {
 public:
  explicit ActingAsClient(HANDLE pipe) : _acting(::ImpersonateNamedPipeClient(pipe)) {}
  ~ActingAsClient() {
    if (_acting) ::RevertToSelf();
  }
  ActingAsClient(const ActingAsClient&) = delete;
  ActingAsClient& operator=(const ActingAsClient&) = delete;
  explicit operator bool() const { return _acting; }

 private:
  const BOOL _acting;
};

bool holdsGroup(HANDLE token, WELL_KNOWN_SID_TYPE group) {
  BYTE sid[SECURITY_MAX_SID_SIZE];
  DWORD size = sizeof sid;
  BOOL member = FALSE;
  return ::CreateWellKnownSid(group, nullptr, sid, &size) &&
         ::CheckTokenMembership(token, sid, &member) && member;
}

class WinPipe final : public Pipe {
 public:
  explicit WinPipe(FileHandle handle) : _handle(std::move(handle)) {}

  bool valid() const { return _interrupt.valid(); }

  uint32_t peek(size_t& available) override {
    DWORD count = 0;
    available = 0;
    if (!::PeekNamedPipe(_handle.get(), nullptr, 0, nullptr, &count, nullptr))
      return ::GetLastError();
    available = count;
    return kOk;
  }

  uint32_t read(void* buffer, size_t size, size_t& got) override {
    DWORD count = 0;
    got = 0;
    if (!::ReadFile(_handle.get(), buffer, static_cast<DWORD>(size), &count, nullptr))
      return ::GetLastError();
    got = count;
    return count == 0 && size > 0 ? kErrorNoData : kOk;
  }

  uint32_t write(const void* bytes, size_t size, size_t& written) override {
    DWORD count = 0;
    written = 0;
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

  bool peerIsAdministrator() override {
    const ActingAsClient client(_handle.get());
    KernelObject token;
    return client &&
           ::OpenThreadToken(::GetCurrentThread(), TOKEN_QUERY, /*OpenAsSelf=*/TRUE,
                             token.receive()) &&
           (holdsGroup(token.get(), WinBuiltinAdministratorsSid) ||
            holdsGroup(token.get(), WinLocalSystemSid));
  }

  void interrupt() override { _interrupt.raise(); }

 private:
  const FileHandle _handle;
  WinInterrupt _interrupt;
};

uint32_t wrap(FileHandle handle, std::unique_ptr<Pipe>& out) {
  auto made = std::make_unique<WinPipe>(std::move(handle));
  if (!made->valid()) return kErrorNotEnoughMemory;
  out = std::move(made);
  return kOk;
}

class WinPipes final : public Pipes {
 public:
  uint32_t create(const std::string& name, std::unique_ptr<Pipe>& out) override {
    const std::string bare = barePipeName(name);
    if (bare.empty()) return kErrorInvalidName;
    LocalMemory descriptor;
    if (!::ConvertStringSecurityDescriptorToSecurityDescriptorW(kAccess, SDDL_REVISION_1,
                                                                descriptor.receive(), nullptr))
      return ::GetLastError();
    SECURITY_ATTRIBUTES security = {sizeof security, descriptor.get(), /*bInheritHandle=*/FALSE};
    FileHandle handle(::CreateNamedPipeW(
        (kPrefix + wide(bare)).c_str(), PIPE_ACCESS_DUPLEX,
        PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_NOWAIT | PIPE_REJECT_REMOTE_CLIENTS,
        /*nMaxInstances=*/1, kPipeBytes, kPipeBytes, /*nDefaultTimeOut=*/0, &security));
    if (!handle) return ::GetLastError();
    return wrap(std::move(handle), out);
  }

  uint32_t open(const std::string& name, std::unique_ptr<Pipe>& out) override {
    const std::string bare = barePipeName(name);
    if (bare.empty()) return kErrorInvalidName;
    FileHandle handle(::CreateFileW((kPrefix + wide(bare)).c_str(), GENERIC_READ | GENERIC_WRITE,
                                    /*dwShareMode=*/0, nullptr, OPEN_EXISTING, 0, nullptr));
    if (!handle) return ::GetLastError();
    DWORD mode = PIPE_READMODE_BYTE | PIPE_NOWAIT;
    if (!::SetNamedPipeHandleState(handle.get(), &mode, nullptr, nullptr)) return ::GetLastError();
    return wrap(std::move(handle), out);
  }
};

}  // namespace

std::unique_ptr<Pipes> makeNativePipes(const NativeOptions&) {
  return std::make_unique<WinPipes>();
}

}  // namespace korvane::platform
