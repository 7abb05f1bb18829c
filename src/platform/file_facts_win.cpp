#include <vector>

#include "platform/survey_win.h"
#include "platform/wide_win.h"

// Behind windows.h, which they need.
#include <softpub.h>
#include <wincrypt.h>
#include <wintrust.h>

namespace korvane::platform {
namespace {

constexpr DWORD kMostResourceBytes = 1024 * 1024;

// A check of a file's signature; its state is given back at the end of the scope.
class SignatureState {
 public:
  explicit SignatureState(const std::wstring& path) {
    _file.cbStruct = sizeof _file;
    _file.pcwszFilePath = path.c_str();
    _data.cbStruct = sizeof _data;
    _data.dwUIChoice = WTD_UI_NONE;
    _data.fdwRevocationChecks = WTD_REVOKE_NONE;
    _data.dwUnionChoice = WTD_CHOICE_FILE;
    _data.pFile = &_file;
    _data.dwStateAction = WTD_STATEACTION_VERIFY;
    _data.dwProvFlags = WTD_CACHE_ONLY_URL_RETRIEVAL | WTD_SAFER_FLAG;
    _trusted = call() == ERROR_SUCCESS;
  }
  ~SignatureState() {
    _data.dwStateAction = WTD_STATEACTION_CLOSE;
    call();
  }
  SignatureState(const SignatureState&) = delete;
  SignatureState& operator=(const SignatureState&) = delete;

  PCCERT_CONTEXT signer() const {
    if (!_trusted) return nullptr;
    CRYPT_PROVIDER_DATA* const provider = ::WTHelperProvDataFromStateData(_data.hWVTStateData);
    CRYPT_PROVIDER_SGNR* const one =
        provider ? ::WTHelperGetProvSignerFromChain(provider, 0, FALSE, 0) : nullptr;
    return one && one->csCertChain > 0 ? one->pasCertChain[0].pCert : nullptr;
  }

 private:
  LONG call() {
    GUID action = WINTRUST_ACTION_GENERIC_VERIFY_V2;
    return ::WinVerifyTrust(static_cast<HWND>(INVALID_HANDLE_VALUE), &action, &_data);
  }

  WINTRUST_FILE_INFO _file{};
  WINTRUST_DATA _data{};
  bool _trusted = false;
};

}  // namespace

std::string versionOfFile(const std::string& path) {
  const std::wstring name = widePath(path);
  DWORD unused = 0;
  const DWORD size = ::GetFileVersionInfoSizeW(name.c_str(), &unused);
  if (size == 0 || size > kMostResourceBytes) return {};
  std::vector<BYTE> resource(size);
  VS_FIXEDFILEINFO* fixed = nullptr;
  UINT length = 0;
  if (!::GetFileVersionInfoW(name.c_str(), 0, size, resource.data()) ||
      !::VerQueryValueW(resource.data(), L"\\", reinterpret_cast<void**>(&fixed), &length) ||
      length < sizeof *fixed)
    return {};
  return std::to_string(HIWORD(fixed->dwFileVersionMS)) + "." +
         std::to_string(LOWORD(fixed->dwFileVersionMS)) + "." +
         std::to_string(HIWORD(fixed->dwFileVersionLS)) + "." +
         std::to_string(LOWORD(fixed->dwFileVersionLS));
}

std::string signerOfFile(const std::string& path) {
  const std::wstring name = widePath(path);
  const SignatureState state(name);
  PCCERT_CONTEXT const certificate = state.signer();
  if (!certificate) return {};
  wchar_t subject[256] = L"";
  ::CertGetNameStringW(certificate, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0, nullptr, subject,
                       static_cast<DWORD>(std::size(subject)));
  return narrow(subject);
}

}  // namespace korvane::platform
