// Owners and access lists of files and folders. Only for the Win32 siblings of the seam and the host.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace korvane::platform {

// Any of these lets an account change a file or what is in a folder, or give itself the right to.
inline constexpr DWORD kChangeRights = FILE_WRITE_DATA | FILE_APPEND_DATA | FILE_WRITE_EA |
                                       FILE_DELETE_CHILD | FILE_WRITE_ATTRIBUTES | DELETE |
                                       WRITE_DAC | WRITE_OWNER | GENERIC_WRITE | GENERIC_ALL;
inline constexpr char kStrangerOwner[] = "its owner";

struct PathAccess {
  DWORD error = 0;   // why it could not be read
  std::string text;  // owner and list in the security descriptor definition language
  // Who has one of the rights beside the system, the administrators, the system's installer and the
  // account that asks.
  std::vector<std::string> strangers;
};

// Of the path itself, also where it is a link.
PathAccess accessOf(const std::string& path, DWORD rights);

}  // namespace korvane::platform
