#include "platform/pipe_peers_win.h"

#include <aclapi.h>

namespace korvane::platform {
namespace {

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

// Of a token that a thread may have.
bool isAdministrators(HANDLE token) {
  return holdsGroup(token, WinBuiltinAdministratorsSid) || holdsGroup(token, WinLocalSystemSid);
}

// The calling process's account, or what it makes the owner of its objects.
bool isOfThisProcess(PSID account) {
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

}  // namespace

ClientAccount accountOfClientsProcess(HANDLE pipe) {
  ULONG id = 0;
  if (!::GetNamedPipeClientProcessId(pipe, &id)) return {};
  const KernelObject process(::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id));
  KernelObject token, ofThread;
  alignas(TOKEN_USER) BYTE user[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
  DWORD size = 0;
  if (!process ||
      !::OpenProcessToken(process.get(), TOKEN_QUERY | TOKEN_DUPLICATE, token.receive()) ||
      !::GetTokenInformation(token.get(), TokenUser, user, sizeof user, &size))
    return {};
  const PSID sid = reinterpret_cast<TOKEN_USER*>(user)->User.Sid;
  ClientAccount account;
  account.sid.assign(static_cast<const char*>(sid), ::GetLengthSid(sid));
  account.administrator =
      ::DuplicateToken(token.get(), SecurityIdentification, ofThread.receive()) &&
      isAdministrators(ofThread.get());
  return account;
}

bool clientIsAdministrator(HANDLE pipe) {
  const ActingAsClient client(pipe);
  KernelObject token;
  return client &&
         ::OpenThreadToken(::GetCurrentThread(), TOKEN_QUERY, /*OpenAsSelf=*/TRUE,
                           token.receive()) &&
         isAdministrators(token.get());
}

// Nobody can give a pipe an owner that is not in his own token.
bool isServedByTrusted(HANDLE pipe) {
  PSID owner = nullptr;
  LocalMemory descriptor;
  return ::GetSecurityInfo(pipe, SE_KERNEL_OBJECT, OWNER_SECURITY_INFORMATION, &owner, nullptr,
                           nullptr, nullptr, descriptor.receive()) == ERROR_SUCCESS &&
         (::IsWellKnownSid(owner, WinBuiltinAdministratorsSid) ||
          ::IsWellKnownSid(owner, WinLocalSystemSid) || isOfThisProcess(owner));
}

}  // namespace korvane::platform
