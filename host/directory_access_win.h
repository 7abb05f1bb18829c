// Directories that only administrators and the system may change.
//
// The access list replaces the existing one, inherits nothing, and is inherited by everything
// below; the directory belongs to the administrators. A list is stated and shown in the security
// descriptor definition language. Paths are UTF-8. Failures are thrown with directory and number.
#pragma once

#include <string>
#include <vector>

namespace korvane::host {

// Everyone on this machine may read and execute what is in it.
inline constexpr char kReadableAccess[] =
    "O:BAD:PAI(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;0x1200a9;;;BU)";
// Nobody else even reads it.
inline constexpr char kClosedAccess[] = "O:BAD:PAI(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)";

// Makes the directory when it is missing, with those above it, and gives it the list. A
// link to another place is refused.
void protectDirectory(const std::string& path, const std::string& access);

struct DirectoryAccess {
  std::string text;  // owner and list, as the system gives them back
  // Who may change it beside the system, the administrators and the account that asks.
  std::vector<std::string> strangers;
};
DirectoryAccess readAccess(const std::string& path);

enum class Depth { entries, everything };
// What lay in the directory before it was protected: a file or folder that others own or may change
// becomes the administrators', with the list of the directory alone. Gives their paths. Thrown: a
// link, and what cannot be repaired.
std::vector<std::string> repairContents(const std::string& directory, Depth depth);

}  // namespace korvane::host
