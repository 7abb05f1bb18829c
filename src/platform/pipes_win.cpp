#include "platform/pipes.h"

#include <aclapi.h>
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
// SYSTEM and Administrators: all; authenticated users: read and write, or nothing; nothing is
// inherited.
constexpr wchar_t kForEveryone[] = L"D:P(A;;GA;;;SY)(A;;GA;;;BA)(A;;GRGW;;;AU)";
constexpr wchar_t kForAdministrators[] = L"D:P(A;;GA;;;SY)(A;;GA;;;BA)";

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

// The calling process's account, or what it makes the owner of its objects.
bool isOwnAccount(PSID account) {
  KernelObject token;
  alignas(TOKEN_USER) BYTE user[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
  alignas(TOKEN_OWNER) BYTE owner[sizeof(TOKEN_OWNER) + SECURITY_MAX_SID_SIZE];
  DWORD size = 0;
  return ::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, token.receive()) &&
         ::GetTokenInformation(token.get(), TokenUser, user, sizeof user, &size) &&
         ::GetTokenInformation(token.get(), TokenOwner, owner, sizeof owner, &size) &&
         (::EqualSid(account, reinterpret_cast<TOKEN_USER*>(user)->User.Sid) ||
          ::EqualSid(account, reinterpret_cast<TOKEN_OWNER*>(owner)->Owner));
}

bool isTrusted(PSID owner) {
  return ::IsWellKnownSid(owner, WinBuiltinAdministratorsSid) ||
         ::IsWellKnownSid(owner, WinLocalSystemSid) || isOwnAccount(owner);
}

// Who serves a pipe may act with the rights of a client whose bytes it has read: nothing is
// sent to a pipe that somebody without rights has made. Nobody can give a pipe an owner
// that is not in his own token.
bool isServedByTrusted(HANDLE pipe) {
  PSID owner = nullptr;
  LocalMemory descriptor;
  return ::GetSecurityInfo(pipe, SE_KERNEL_OBJECT, OWNER_SECURITY_INFORMATION, &owner, nullptr,
                           nullptr, nullptr, descriptor.receive()) == ERROR_SUCCESS &&
         isTrusted(owner);
}

uint32_t createServersEnd(const std::wstring& name, PipeAudience audience, FileHandle& out) {
  const wchar_t* const access =
      audience == PipeAudience::everyone ? kForEveryone : kForAdministrators;
  LocalMemory descriptor;
  if (!::ConvertStringSecurityDescriptorToSecurityDescriptorW(access, SDDL_REVISION_1,
                                                              descriptor.receive(), nullptr))
    return ::GetLastError();
  SECURITY_ATTRIBUTES security = {sizeof security, descriptor.get(), /*bInheritHandle=*/FALSE};
  FileHandle handle(::CreateNamedPipeW(
      name.c_str(), PIPE_ACCESS_DUPLEX | FILE_FLAG_FIRST_PIPE_INSTANCE,
      PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_NOWAIT | PIPE_REJECT_REMOTE_CLIENTS,
      /*nMaxInstances=*/1, kPipeBytes, kPipeBytes, /*nDefaultTimeOut=*/0, &security));
  // Also of a pipe that somebody made to let others in beside its own end.
  if (!handle) return ::GetLastError() == ERROR_ACCESS_DENIED ? kErrorPipeBusy : ::GetLastError();
  out = std::move(handle);
  return kOk;
}

class WinPipe : public Pipe {
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

  uint32_t renew() override { return kErrorInvalidHandle; }

  void interrupt() override { _interrupt.raise(); }

 protected:
  void use(FileHandle handle) { _handle = std::move(handle); }

 private:
  FileHandle _handle;
  WinInterrupt _interrupt;
};

class WinPipeServer final : public WinPipe {
 public:
  WinPipeServer(std::wstring name, PipeAudience audience, FileHandle handle)
      : WinPipe(std::move(handle)), _name(std::move(name)), _audience(audience) {}

  uint32_t renew() override {
    use(FileHandle());
    FileHandle made;
    const uint32_t error = createServersEnd(_name, _audience, made);
    use(std::move(made));
    return error;
  }

 private:
  const std::wstring _name;
  const PipeAudience _audience;
};

uint32_t handOut(std::unique_ptr<WinPipe> made, std::unique_ptr<Pipe>& out) {
  if (!made->valid()) return kErrorNotEnoughMemory;
  out = std::move(made);
  return kOk;
}

class WinPipes final : public Pipes {
 public:
  uint32_t create(const std::string& name, PipeAudience audience,
                  std::unique_ptr<Pipe>& out) override {
    const std::string bare = barePipeName(name);
    if (bare.empty()) return kErrorInvalidName;
    std::wstring full = kPrefix + wide(bare);
    FileHandle handle;
    if (const uint32_t error = createServersEnd(full, audience, handle)) return error;
    return handOut(std::make_unique<WinPipeServer>(std::move(full), audience, std::move(handle)),
                   out);
  }

  uint32_t open(const std::string& name, std::unique_ptr<Pipe>& out) override {
    const std::string bare = barePipeName(name);
    if (bare.empty()) return kErrorInvalidName;
    FileHandle handle(::CreateFileW((kPrefix + wide(bare)).c_str(), GENERIC_READ | GENERIC_WRITE,
                                    /*dwShareMode=*/0, nullptr, OPEN_EXISTING, 0, nullptr));
    if (!handle) return ::GetLastError();
    if (!isServedByTrusted(handle.get())) return kErrorAccessDenied;
    DWORD mode = PIPE_READMODE_BYTE | PIPE_NOWAIT;
    if (!::SetNamedPipeHandleState(handle.get(), &mode, nullptr, nullptr)) return ::GetLastError();
    return handOut(std::make_unique<WinPipe>(std::move(handle)), out);
  }
};

}  // namespace

std::unique_ptr<Pipes> makeNativePipes(const NativeOptions&) {
  return std::make_unique<WinPipes>();
}

}  // namespace korvane::platform
