#include "platform/access_win.h"

#include "platform/handles_win.h"
#include "platform/wide_win.h"

// Behind windows.h, which they need.
#include <aclapi.h>
#include <sddl.h>

namespace korvane::platform {
namespace {

constexpr SECURITY_INFORMATION kShown = OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;
// NT SERVICE\TrustedInstaller, to which the system's own files belong.
constexpr wchar_t kInstaller[] = L"S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464";
// The owner's rights: the owner is looked at itself.
constexpr wchar_t kOwnerRights[] = L"S-1-3-4";

template <class T>
struct LocalMemoryOf {
  using Value = T;
  static Value empty() { return nullptr; }
  static void close(Value value) { ::LocalFree(value); }
};
using Text = OwnedHandle<LocalMemoryOf<LPWSTR>>;
using Descriptor = OwnedHandle<LocalMemoryOf<PSECURITY_DESCRIPTOR>>;

std::wstring textOf(PSID account) {
  Text text;
  return ::ConvertSidToStringSidW(account, text.receive()) ? text.get() : L"an account";
}

bool isOwnAccount(PSID account) {
  KernelObject token;
  DWORD size = 0;
  alignas(TOKEN_USER) BYTE user[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
  return ::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, token.receive()) &&
         ::GetTokenInformation(token.get(), TokenUser, user, sizeof user, &size) &&
         ::EqualSid(account, reinterpret_cast<TOKEN_USER*>(user)->User.Sid);
}

bool mayChange(PSID account) {
  if (::IsWellKnownSid(account, WinLocalSystemSid) ||
      ::IsWellKnownSid(account, WinBuiltinAdministratorsSid) || isOwnAccount(account))
    return true;
  const std::wstring text = textOf(account);
  return text == kInstaller || text == kOwnerRights;
}

// Entries of these types begin alike; those that deny are not counted in anybody's favour.
bool allows(BYTE type) {
  return type == ACCESS_ALLOWED_ACE_TYPE || type == ACCESS_ALLOWED_CALLBACK_ACE_TYPE;
}

void addStrangers(PACL list, DWORD rights, std::vector<std::string>& strangers) {
  for (DWORD i = 0; i < list->AceCount; ++i) {
    void* entry = nullptr;
    if (!::GetAce(list, i, &entry)) continue;
    auto* allowed = static_cast<ACCESS_ALLOWED_ACE*>(entry);
    if (!allows(allowed->Header.AceType) || (allowed->Header.AceFlags & INHERIT_ONLY_ACE) ||
        !(allowed->Mask & rights))
      continue;
    const PSID account = &allowed->SidStart;
    if (!mayChange(account)) strangers.push_back(narrow(textOf(account)));
  }
}

}  // namespace

PathAccess accessOf(const std::string& path, DWORD rights) {
  PathAccess access;
  const FileHandle file(::CreateFileW(
      widePath(path).c_str(), READ_CONTROL, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
      nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
  PSID owner = nullptr;
  PACL list = nullptr;
  Descriptor descriptor;
  access.error = file ? ::GetSecurityInfo(file.get(), SE_FILE_OBJECT, kShown, &owner, nullptr,
                                          &list, nullptr, descriptor.receive())
                      : ::GetLastError();
  if (access.error) return access;
  Text text;
  if (::ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor.get(), SDDL_REVISION_1,
                                                             kShown, text.receive(), nullptr))
    access.text = narrow(text.get());
  if (!owner || !mayChange(owner)) access.strangers.push_back(kStrangerOwner);
  if (list)
    addStrangers(list, rights, access.strangers);
  else
    access.strangers.push_back("everyone (no access list)");
  return access;
}

}  // namespace korvane::platform
