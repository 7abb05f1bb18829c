#include "host/directory_access_win.h"

#include <aclapi.h>
#include <sddl.h>

#include <filesystem>

#include "host/service_handles_win.h"
#include "host/system_failure_win.h"
#include "host/text_win.h"

namespace korvane::host {
namespace {

using Descriptor = LocalMemory<PSECURITY_DESCRIPTOR>;

constexpr DWORD kChange = FILE_WRITE_DATA | FILE_APPEND_DATA | FILE_WRITE_EA | FILE_DELETE_CHILD |
                          FILE_WRITE_ATTRIBUTES | DELETE | WRITE_DAC | WRITE_OWNER | GENERIC_WRITE |
                          GENERIC_ALL;
constexpr SECURITY_INFORMATION kShown = OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;

Descriptor descriptorOf(const std::string& access) {
  Descriptor descriptor;
  if (!::ConvertStringSecurityDescriptorToSecurityDescriptorW(wide(access).c_str(), SDDL_REVISION_1,
                                                              descriptor.receive(), nullptr))
    throw systemFailure("understand the access list " + access);
  return descriptor;
}

std::string textOf(PSECURITY_DESCRIPTOR descriptor) {
  LocalMemory<LPWSTR> text;
  if (!::ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor, SDDL_REVISION_1, kShown,
                                                              text.receive(), nullptr))
    throw systemFailure("write an access list as text");
  return narrow(text.get());
}

std::string accountText(PSID account) {
  LocalMemory<LPWSTR> text;
  return ::ConvertSidToStringSidW(account, text.receive()) ? narrow(text.get()) : "an account";
}

// The account of this process, as TOKEN_USER.
std::vector<BYTE> ownAccount() {
  platform::KernelObject token;
  DWORD size = 0;
  if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, token.receive()))
    throw systemFailure("open this process's token");
  ::GetTokenInformation(token.get(), TokenUser, nullptr, 0, &size);
  std::vector<BYTE> account(size);
  if (!::GetTokenInformation(token.get(), TokenUser, account.data(), size, &size))
    throw systemFailure("read this process's account");
  return account;
}

bool mayChange(PSID account) {
  if (::IsWellKnownSid(account, WinLocalSystemSid) ||
      ::IsWellKnownSid(account, WinBuiltinAdministratorsSid))
    return true;
  std::vector<BYTE> own = ownAccount();
  return ::EqualSid(account, reinterpret_cast<TOKEN_USER*>(own.data())->User.Sid) != FALSE;
}

void addStrangers(PACL list, std::vector<std::string>& strangers) {
  for (DWORD i = 0; i < list->AceCount; ++i) {
    void* entry = nullptr;
    if (!::GetAce(list, i, &entry)) throw systemFailure("read an access list");
    auto* allowed = static_cast<ACCESS_ALLOWED_ACE*>(entry);
    if (allowed->Header.AceType != ACCESS_ALLOWED_ACE_TYPE || (allowed->Mask & kChange) == 0)
      continue;
    const PSID account = &allowed->SidStart;
    if (!mayChange(account)) strangers.push_back(accountText(account));
  }
}

// With the list from its first moment on, where it is missing.
void makeDirectory(const std::string& path, PSECURITY_DESCRIPTOR descriptor) {
  const std::filesystem::path above = std::filesystem::path(wide(path)).parent_path();
  std::error_code ignored;
  std::filesystem::create_directories(above, ignored);
  SECURITY_ATTRIBUTES attributes = {sizeof attributes, descriptor, FALSE};
  if (::CreateDirectoryW(wide(path).c_str(), &attributes)) return;
  if (::GetLastError() != ERROR_ALREADY_EXISTS) throw systemFailure("make the directory " + path);
  const DWORD found = ::GetFileAttributesW(wide(path).c_str());
  if (found == INVALID_FILE_ATTRIBUTES) throw systemFailure("look at the directory " + path);
  if ((found & FILE_ATTRIBUTE_DIRECTORY) == 0) throw systemFailure("use " + path, ERROR_DIRECTORY);
  if (found & FILE_ATTRIBUTE_REPARSE_POINT)
    throw systemFailure("use " + path + ", a link", ERROR_REPARSE_TAG_INVALID);
}

}  // namespace

void protectDirectory(const std::string& path, const std::string& access) {
  const Descriptor descriptor = descriptorOf(access);
  makeDirectory(path, descriptor.get());
  PSID owner = nullptr;
  PACL list = nullptr;
  BOOL present = FALSE;
  BOOL defaulted = FALSE;
  ::GetSecurityDescriptorOwner(descriptor.get(), &owner, &defaulted);
  ::GetSecurityDescriptorDacl(descriptor.get(), &present, &list, &defaulted);
  const DWORD error = ::SetNamedSecurityInfoW(wide(path).data(), SE_FILE_OBJECT,
                                              kShown | PROTECTED_DACL_SECURITY_INFORMATION, owner,
                                              nullptr, list, nullptr);
  if (error) throw systemFailure("set the access list of " + path, error);
  // The call above hands the list on to what is in the directory, but Wine's mixes in the
  // list of the directory above.
  if (!::SetFileSecurityW(wide(path).c_str(), kShown | PROTECTED_DACL_SECURITY_INFORMATION,
                          descriptor.get()))
    throw systemFailure("set the access list of " + path);
}

DirectoryAccess readAccess(const std::string& path) {
  PSID owner = nullptr;
  PACL list = nullptr;
  Descriptor descriptor;
  const DWORD error = ::GetNamedSecurityInfoW(wide(path).c_str(), SE_FILE_OBJECT, kShown, &owner,
                                              nullptr, &list, nullptr, descriptor.receive());
  if (error) throw systemFailure("read the access list of " + path, error);
  DirectoryAccess access{textOf(descriptor.get()), {}};
  if (!owner || !mayChange(owner)) access.strangers.push_back("its owner");
  if (list)
    addStrangers(list, access.strangers);
  else
    access.strangers.push_back("everyone (no access list)");
  return access;
}

}  // namespace korvane::host
