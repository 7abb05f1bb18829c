#include "config/fips.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/provider.h>

#include <memory>
#include <new>
#include <string>

#include "config/fips_module.h"

namespace korvane {
namespace {

constexpr size_t kErrorTextBytes = 1024;

// The library's last error, with what stands in `detail`.
STRING errorText(const std::string& detail) {
  const std::unique_ptr<char[]> text(new (std::nothrow) char[kErrorTextBytes]);
  if (!text) return "Failed to allocate memory for error str";
  ERR_error_string_n(ERR_peek_last_error(), text.get(), kErrorTextBytes);
  ERR_clear_error();
  std::string all = text.get();
  if (!detail.empty()) all += " (" + detail + ")";
  return all.substr(0, kErrorTextBytes);
}

// Loads the providers that FIPS mode needs and proves that they give an algorithm. The
// default provider is loaded by name first: otherwise loading another one would take away
// its automatic activation.
bool fipsProviderWorks(platform::Files& files, platform::SharedLibraries& libraries,
                       std::string& detail) {
  static OSSL_PROVIDER* const fallback = OSSL_PROVIDER_load(nullptr, "default");
  if (!fallback) return false;
  if (!loadFipsModule(files, libraries, detail)) return false;
  static OSSL_PROVIDER* const base = OSSL_PROVIDER_try_load(nullptr, "base", 1);
  if (!base) return false;
  const std::unique_ptr<EVP_MD, decltype(&EVP_MD_free)> digest(
      EVP_MD_fetch(nullptr, "SHA2-256", "fips=yes"), &EVP_MD_free);
  return digest != nullptr;
}

}  // namespace

bool fipsModeOn() {
  return EVP_default_properties_is_fips_enabled(nullptr) == 1;
}

bool switchFipsMode(bool on, platform::Files& files, platform::SharedLibraries& libraries,
                    STRING& error) {
  ERR_clear_error();
  std::string detail;
  if ((!on || fipsProviderWorks(files, libraries, detail)) &&
      EVP_default_properties_enable_fips(nullptr, on ? 1 : 0) == 1) {
    return true;
  }
  error = errorText(detail);
  return false;
}

}  // namespace korvane
