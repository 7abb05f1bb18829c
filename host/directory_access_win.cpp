#include "host/directory_access_win.h"

#include <aclapi.h>
#include <sddl.h>

#include <filesystem>

#include "host/service_handles_win.h"
#include "host/system_failure_win.h"
#include "host/text_win.h"
#include "platform/access_win.h"

namespace korvane::host {
namespace {

constexpr size_t kMostEntries = 1000000;

using Descriptor = LocalMemory<PSECURITY_DESCRIPTOR>;

constexpr SECURITY_INFORMATION kShown = OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;

Descriptor descriptorOf(const std::string& access) {
  Descriptor descriptor;
  if (!::ConvertStringSecurityDescriptorToSecurityDescriptorW(wide(access).c_str(), SDDL_REVISION_1,
                                                              descriptor.receive(), nullptr))
    throw systemFailure("understand the access list " + access);
  return descriptor;
}

// Administrators have them, switched off: to read and set owner and list of what is not theirs.
void enablePrivileges() {
  platform::KernelObject token;
  if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES, token.receive())) return;
  for (const wchar_t* name : {SE_TAKE_OWNERSHIP_NAME, SE_RESTORE_NAME, SE_BACKUP_NAME}) {
    TOKEN_PRIVILEGES wanted = {1, {{{}, SE_PRIVILEGE_ENABLED}}};
    if (::LookupPrivilegeValueW(nullptr, name, &wanted.Privileges[0].Luid))
      ::AdjustTokenPrivileges(token.get(), FALSE, &wanted, 0, nullptr, nullptr);
  }
}

std::string utf8(const std::filesystem::path& path) {
  return narrow(path.wstring());
}

// The owner first: who is not the owner may not be allowed to set the list.
void inheritAgain(const std::string& path) {
  const Descriptor descriptor = descriptorOf("O:BAD:");
  PSID owner = nullptr;
  PACL none = nullptr;
  BOOL present = FALSE;
  BOOL defaulted = FALSE;
  ::GetSecurityDescriptorOwner(descriptor.get(), &owner, &defaulted);
  ::GetSecurityDescriptorDacl(descriptor.get(), &present, &none, &defaulted);
  std::wstring name = wide(path);
  DWORD error = ::SetNamedSecurityInfoW(name.data(), SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION,
                                        owner, nullptr, nullptr, nullptr);
  if (!error)
    error =
        ::SetNamedSecurityInfoW(name.data(), SE_FILE_OBJECT,
                                DACL_SECURITY_INFORMATION | UNPROTECTED_DACL_SECURITY_INFORMATION,
                                nullptr, nullptr, none, nullptr);
  if (error) throw systemFailure("set owner and access list of " + path, error);
}

void repair(const std::filesystem::directory_entry& entry, std::vector<std::string>& repaired) {
  const std::string path = utf8(entry.path());
  const DWORD found = ::GetFileAttributesW(wide(path).c_str());
  if (found != INVALID_FILE_ATTRIBUTES && (found & FILE_ATTRIBUTE_REPARSE_POINT))
    throw systemFailure("use " + path + ", a link", ERROR_REPARSE_TAG_INVALID);
  const auto strangers = [&] {
    const platform::PathAccess access = platform::accessOf(path, platform::kChangeRights);
    return access.error || !access.strangers.empty();
  };
  if (!strangers()) return;
  inheritAgain(path);
  if (strangers())
    throw std::runtime_error(path + " may be changed by others, which cannot be repaired");
  repaired.push_back(path);
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
  enablePrivileges();
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
  platform::PathAccess access = platform::accessOf(path, platform::kChangeRights);
  if (access.error) throw systemFailure("read the access list of " + path, access.error);
  return {std::move(access.text), std::move(access.strangers)};
}

std::vector<std::string> repairContents(const std::string& directory, Depth depth) {
  namespace fs = std::filesystem;
  std::vector<std::string> repaired;
  std::error_code error;
  size_t seen = 0;
  if (depth == Depth::entries) {
    for (const auto& entry : fs::directory_iterator(wide(directory), error))
      repair(entry, repaired);
  } else {
    for (auto at = fs::recursive_directory_iterator(wide(directory), error);
         !error && at != fs::recursive_directory_iterator(); at.increment(error)) {
      if (++seen > kMostEntries)
        throw std::runtime_error(directory + " holds more than a million files");
      repair(*at, repaired);
    }
  }
  if (error) throw systemFailure("look into " + directory, static_cast<DWORD>(error.value()));
  return repaired;
}

}  // namespace korvane::host
