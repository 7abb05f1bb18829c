#include <algorithm>

#include "platform/error_codes.h"
#include "platform/handles_win.h"
#include "platform/native.h"
#include "platform/registry.h"
#include "platform/wide_win.h"

namespace korvane::platform {
namespace {

// A 32-bit and a 64-bit program must see the same values.
constexpr REGSAM kView = KEY_WOW64_64KEY;

std::wstring keyPath(std::string_view key) {
  while (!key.empty() && key.front() == '\\') key.remove_prefix(1);
  while (!key.empty() && key.back() == '\\') key.remove_suffix(1);
  return wide(key);
}

bool isPlainName(std::string_view name) {
  return std::all_of(name.begin(), name.end(),
                     [](char c) { return static_cast<unsigned char>(c) >= ' '; });
}

// A key that was deleted while it is open is as good as missing.
uint32_t seamError(LSTATUS error) {
  const auto number = static_cast<uint32_t>(error);
  return number == ERROR_KEY_DELETED ? kErrorFileNotFound : number;
}

uint32_t openKey(std::string_view key, REGSAM access, RegistryKey& out) {
  return seamError(
      ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, keyPath(key).c_str(), 0, access | kView, out.receive()));
}

// The value's bytes, whatever its type.
uint32_t queryValue(HKEY key, const std::wstring& name, DWORD& type, std::vector<BYTE>& bytes) {
  DWORD size = 256;
  LSTATUS error;
  do {
    bytes.resize(size);
    error = ::RegQueryValueExW(key, name.c_str(), nullptr, &type, bytes.data(), &size);
  } while (error == ERROR_MORE_DATA);
  bytes.resize(error ? 0 : size);
  return seamError(error);
}

// The end mark is written by most, but not by all who write values.
STRING textOf(const std::vector<BYTE>& bytes) {
  std::u16string text;
  for (size_t i = 0; i + 1 < bytes.size(); i += 2)
    text += static_cast<char16_t>(bytes[i] | bytes[i + 1] << 8);
  if (!text.empty() && text.back() == 0) text.pop_back();
  return STRING(std::move(text));
}

class WinRegistry final : public Registry {
 public:
  uint32_t readString(std::string_view key, std::string_view name, STRING& out) override {
    DWORD type = 0;
    std::vector<BYTE> bytes;
    if (const uint32_t error = read(key, name, type, bytes)) return error;
    if (type != REG_SZ && type != REG_EXPAND_SZ) return kErrorInvalidData;
    out = textOf(bytes);
    return kOk;
  }

  uint32_t readDword(std::string_view key, std::string_view name, uint32_t& out) override {
    DWORD type = 0;
    std::vector<BYTE> bytes;
    if (const uint32_t error = read(key, name, type, bytes)) return error;
    if (type != REG_DWORD || bytes.size() != 4) return kErrorInvalidData;
    out = bytes[0] | bytes[1] << 8 | bytes[2] << 16 | static_cast<uint32_t>(bytes[3]) << 24;
    return kOk;
  }

  uint32_t writeString(std::string_view key, std::string_view name, const STRING& value) override {
    const DWORD size = static_cast<DWORD>((value.length() + 1) * sizeof(char16_t));
    return write(key, name, REG_SZ, value.c_str(), size);
  }

  uint32_t writeDword(std::string_view key, std::string_view name, uint32_t value) override {
    return write(key, name, REG_DWORD, &value, sizeof value);
  }

  uint32_t createKey(std::string_view key) override {
    RegistryKey made;
    return seamError(::RegCreateKeyExW(HKEY_LOCAL_MACHINE, keyPath(key).c_str(), 0, nullptr,
                                       REG_OPTION_NON_VOLATILE, KEY_QUERY_VALUE | kView, nullptr,
                                       made.receive(), nullptr));
  }

  uint32_t deleteKey(std::string_view key) override {
    return seamError(::RegDeleteKeyExW(HKEY_LOCAL_MACHINE, keyPath(key).c_str(), kView, 0));
  }

  std::string problem() override { return {}; }

 private:
  static uint32_t read(std::string_view key, std::string_view name, DWORD& type,
                       std::vector<BYTE>& bytes) {
    RegistryKey opened;
    if (const uint32_t error = openKey(key, KEY_QUERY_VALUE, opened)) return error;
    return queryValue(opened.get(), wide(name), type, bytes);
  }

  static uint32_t write(std::string_view key, std::string_view name, DWORD type, const void* bytes,
                        DWORD size) {
    if (!isPlainName(name)) return kErrorInvalidParameter;
    RegistryKey opened;
    if (const uint32_t error = openKey(key, KEY_SET_VALUE, opened)) return error;
    return seamError(::RegSetValueExW(opened.get(), wide(name).c_str(), 0, type,
                                      static_cast<const BYTE*>(bytes), size));
  }
};

}  // namespace

std::unique_ptr<Registry> makeNativeRegistry(const NativeOptions&, Files&, Devices&) {
  return std::make_unique<WinRegistry>();
}

}  // namespace korvane::platform
