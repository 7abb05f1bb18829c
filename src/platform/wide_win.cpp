#include "platform/wide_win.h"

#include <windows.h>

#include <algorithm>

#include "util/utf8.h"

namespace korvane::platform {
namespace {

// Directories must stay 12 characters, a short file name, below MAX_PATH.
constexpr size_t kLongestPlainPath = MAX_PATH - 13;

bool isRaw(const std::wstring& path) {
  return path.starts_with(L"\\\\?\\") || path.starts_with(L"\\\\.\\");
}

std::wstring fullPath(const std::wstring& path) {
  std::wstring full(MAX_PATH, L'\0');
  for (;;) {
    const DWORD size =
        ::GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
    if (size == 0) return path;
    const bool fits = size < full.size();
    full.resize(size);
    if (fits) return full;
  }
}

}  // namespace

std::wstring wide(std::string_view utf8) {
  const std::u16string text = utf8ToUtf16(utf8);
  return {text.begin(), text.end()};
}

std::string narrow(std::wstring_view text) {
  return utf16ToUtf8(std::u16string(text.begin(), text.end()));
}

std::wstring widePath(std::string_view path) {
  const std::wstring plain = wide(path);
  if (plain.empty() || isRaw(plain)) return plain;
  std::wstring full = fullPath(plain);
  if (full.size() < kLongestPlainPath || isRaw(full)) return full;
  return full.starts_with(L"\\\\") ? L"\\\\?\\UNC" + full.substr(1) : L"\\\\?\\" + full;
}

std::string systemText(unsigned long error) {
  wchar_t text[512] = L"";
  const DWORD size =
      ::FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error,
                       0, text, static_cast<DWORD>(std::size(text)), nullptr);
  std::string line = narrow({text, size});
  while (!line.empty() && (line.back() <= ' ' || line.back() == '.')) line.pop_back();
  std::replace_if(
      line.begin(), line.end(), [](char c) { return c == '\r' || c == '\n'; }, ' ');
  return line + (line.empty() ? "error " : " (error ") + std::to_string(error) +
         (line.empty() ? "" : ")");
}

}  // namespace korvane::platform
