#include "platform/survey_win.h"

#include <cerrno>
#include <vector>

#include "platform/errno_win.h"
#include "platform/native.h"
#include "platform/wide_win.h"

namespace korvane::platform {
namespace {

constexpr wchar_t kUninstall[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall";
constexpr DWORD kMostNameUnits = 16384;
constexpr DWORD kMostValueBytes = 64 * 1024;

class WinSurvey final : public Survey {
 public:
  void applications(SurveyGuide& guide, const Taker<SurveyedApplication>& take) override {
    surveyUninstallKeys(guide, take);
  }
  void services(SurveyGuide& guide, const Taker<SurveyedService>& take) override {
    surveyServiceManager(guide, take);
  }
  void processes(SurveyGuide& guide, const Taker<SurveyedProcess>& take) override {
    surveyProcesses(guide, take);
  }
  void ports(SurveyGuide& guide, const Taker<SurveyedPort>& take) override {
    surveyPorts(guide, take);
  }
  void shortcuts(SurveyGuide& guide, const Taker<SurveyedShortcut>& take) override {
    surveyShellLinks(guide, take);
  }
  void registryValues(SurveyGuide& guide, const std::string& key, size_t depth,
                      const Taker<SurveyedValue>& take) override {
    surveyRegistry(guide, key, depth, take);
  }
  int walk(SurveyGuide& guide, const std::string& root, std::unique_ptr<FileWalk>& out) override {
    return walkFiles(guide, root, out);
  }
  bool ignoresCase() const override { return true; }
};

void tellUninstallKeys(SurveyGuide& guide, HKEY root, const std::wstring& path, REGSAM view,
                       const char* architecture, const Survey::Taker<SurveyedApplication>& take) {
  RegistryKey all;
  const LSTATUS error = ::RegOpenKeyExW(root, path.c_str(), 0, KEY_READ | view, all.receive());
  if (error && error != ERROR_FILE_NOT_FOUND)
    guide.skipped(narrow(path), errnoOfWin32(static_cast<DWORD>(error)));
  if (error) return;
  eachSubkey(guide, all.get(), [&](const std::wstring& name) {
    RegistryKey one;
    const LSTATUS refused =
        ::RegOpenKeyExW(all.get(), name.c_str(), 0, KEY_READ | view, one.receive());
    if (refused == ERROR_ACCESS_DENIED) guide.skipped(narrow(path + L"\\" + name), EACCES);
    if (refused) return;
    const SurveyedApplication row{
        stringValue(one.get(), L"DisplayName"),     stringValue(one.get(), L"DisplayVersion"),
        stringValue(one.get(), L"Publisher"),       architecture,
        stringValue(one.get(), L"InstallLocation"), stringValue(one.get(), L"InstallDate")};
    if (!row.name.empty()) take(row);
  });
}

std::string hexadecimal(const BYTE* bytes, size_t size) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (size_t i = 0; i < size && text.size() < kMostTextBytes; ++i) {
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 15];
  }
  return text;
}

template <class Number>
std::string numberText(const std::vector<BYTE>& bytes, size_t size) {
  Number number = 0;
  if (size >= sizeof number) memcpy(&number, bytes.data(), sizeof number);
  return std::to_string(number);
}

void setValue(SurveyedValue& row, DWORD type, const std::vector<BYTE>& bytes, size_t size) {
  std::wstring text(reinterpret_cast<const wchar_t*>(bytes.data()), size / sizeof(wchar_t));
  while (!text.empty() && text.back() == L'\0') text.pop_back();
  switch (type) {
    case REG_SZ:
    case REG_EXPAND_SZ:
      row.type = type == REG_SZ ? "string" : "expandable";
      row.value = narrow(text);
      break;
    case REG_MULTI_SZ:
      row.type = "strings";
      for (wchar_t& unit : text)
        if (unit == L'\0') unit = L'\n';
      row.value = narrow(text);
      break;
    case REG_DWORD:
      row.type = "dword";
      row.value = numberText<uint32_t>(bytes, size);
      break;
    case REG_QWORD:
      row.type = "qword";
      row.value = numberText<uint64_t>(bytes, size);
      break;
    default:
      row.type = "binary";
      row.value = hexadecimal(bytes.data(), size);
  }
}

void tellValues(SurveyGuide& guide, HKEY key, const std::string& path,
                const Survey::Taker<SurveyedValue>& take) {
  std::vector<BYTE> bytes(kMostValueBytes);
  std::wstring name(kMostNameUnits, L'\0');
  for (DWORD i = 0; guide.goOn(); ++i) {
    DWORD units = kMostNameUnits, size = kMostValueBytes, type = 0;
    const LSTATUS error =
        ::RegEnumValueW(key, i, name.data(), &units, nullptr, &type, bytes.data(), &size);
    if (error == ERROR_NO_MORE_ITEMS) return;
    if (error)
      guide.skipped(path,
                    error == ERROR_MORE_DATA ? EFBIG : errnoOfWin32(static_cast<DWORD>(error)));
    if (error && error != ERROR_MORE_DATA) return;
    if (error) continue;
    SurveyedValue row{path, narrow({name.data(), units}), {}, {}};
    setValue(row, type, bytes, size);
    take(row);
  }
}

}  // namespace

void eachSubkey(SurveyGuide& guide, HKEY key,
                const std::function<void(const std::wstring&)>& each) {
  wchar_t name[256];
  for (DWORD i = 0; guide.goOn(); ++i) {
    DWORD units = static_cast<DWORD>(std::size(name));
    if (::RegEnumKeyExW(key, i, name, &units, nullptr, nullptr, nullptr, nullptr)) return;
    each({name, units});
  }
}

std::string stringValue(HKEY key, const wchar_t* name) {
  DWORD size = 0;
  constexpr DWORD kStrings = RRF_RT_REG_SZ | RRF_RT_REG_EXPAND_SZ;
  if (::RegGetValueW(key, nullptr, name, kStrings, nullptr, nullptr, &size) ||
      size > kMostValueBytes)
    return {};
  std::wstring text(size / sizeof(wchar_t) + 1, L'\0');
  size = static_cast<DWORD>(text.size() * sizeof(wchar_t));
  if (::RegGetValueW(key, nullptr, name, kStrings, nullptr, text.data(), &size)) return {};
  return narrow(text.c_str());
}

void surveyUninstallKeys(SurveyGuide& guide, const Survey::Taker<SurveyedApplication>& take) {
  tellUninstallKeys(guide, HKEY_LOCAL_MACHINE, kUninstall, KEY_WOW64_64KEY, "x64", take);
  tellUninstallKeys(guide, HKEY_LOCAL_MACHINE, kUninstall, KEY_WOW64_32KEY, "x86", take);
  eachSubkey(guide, HKEY_USERS, [&](const std::wstring& user) {
    tellUninstallKeys(guide, HKEY_USERS, user + L"\\" + kUninstall, 0, "", take);
  });
}

void surveyRegistry(SurveyGuide& guide, const std::string& key, size_t depth,
                    const Survey::Taker<SurveyedValue>& take) {
  RegistryKey opened;
  const LSTATUS error = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, wide(key).c_str(), 0,
                                        KEY_READ | KEY_WOW64_64KEY, opened.receive());
  if (error && error != ERROR_FILE_NOT_FOUND)
    guide.skipped(key, errnoOfWin32(static_cast<DWORD>(error)));
  if (error) return;
  tellValues(guide, opened.get(), key, take);
  if (depth == 0) return;
  eachSubkey(guide, opened.get(), [&](const std::wstring& name) {
    surveyRegistry(guide, key + "\\" + narrow(name), depth - 1, take);
  });
}

std::unique_ptr<Survey> makeNativeSurvey() {
  return std::make_unique<WinSurvey>();
}

}  // namespace korvane::platform
