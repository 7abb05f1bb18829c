// A failed call of the operating system: what was tried, on which object, and the number that came
// back. Only for the Win32 siblings of the host.
//
//   if (!service) throw systemFailure("open the service " + name);
//   // "cannot open the service Korvane: error 5 (Access is denied.)"
#pragma once

#include <windows.h>

#include <stdexcept>
#include <string>

namespace korvane::host {

class SystemFailure : public std::runtime_error {
 public:
  SystemFailure(const std::string& what, DWORD number);
  DWORD number() const { return _number; }

 private:
  DWORD _number;
};

// "error 5 (Access is denied.)"
std::string errorText(DWORD number);

// With the calling thread's last error, where no other number is given.
SystemFailure systemFailure(const std::string& what);
SystemFailure systemFailure(const std::string& what, DWORD number);

}  // namespace korvane::host
