// UTF-8 and the wide texts of Win32. Only for the Win32 siblings of the host, which links
// nothing of the agent.
#pragma once

#include <windows.h>

#include <string>

namespace korvane::host {

inline std::wstring wide(const std::string& utf8) {
  const int bytes = static_cast<int>(utf8.size());
  const int size = ::MultiByteToWideChar(CP_UTF8, 0, utf8.data(), bytes, nullptr, 0);
  std::wstring text(static_cast<size_t>(size), L'\0');
  ::MultiByteToWideChar(CP_UTF8, 0, utf8.data(), bytes, text.data(), size);
  return text;
}

inline std::string narrow(const std::wstring& text) {
  const int units = static_cast<int>(text.size());
  const int size =
      ::WideCharToMultiByte(CP_UTF8, 0, text.data(), units, nullptr, 0, nullptr, nullptr);
  std::string utf8(static_cast<size_t>(size), '\0');
  ::WideCharToMultiByte(CP_UTF8, 0, text.data(), units, utf8.data(), size, nullptr, nullptr);
  return utf8;
}

}  // namespace korvane::host
