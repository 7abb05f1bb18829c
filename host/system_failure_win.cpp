#include "host/system_failure_win.h"

#include "host/text_win.h"

namespace korvane::host {

std::string errorText(DWORD number) {
  wchar_t text[512] = L"";
  const DWORD size = ::FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                                      nullptr, number, 0, text, 512, nullptr);
  std::string described = narrow(std::wstring(text, size));
  while (!described.empty() && static_cast<unsigned char>(described.back()) <= ' ')
    described.pop_back();
  const std::string named = "error " + std::to_string(number);
  return described.empty() ? named : named + " (" + described + ")";
}

SystemFailure::SystemFailure(const std::string& what, DWORD number)
    : std::runtime_error("cannot " + what + ": " + errorText(number)), _number(number) {}

SystemFailure systemFailure(const std::string& what) {
  return systemFailure(what, ::GetLastError());
}

SystemFailure systemFailure(const std::string& what, DWORD number) {
  return {what, number};
}

}  // namespace korvane::host
