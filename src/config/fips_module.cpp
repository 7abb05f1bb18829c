#include "config/fips_module.h"

#include <openssl/conf.h>
#include <openssl/core.h>
#include <openssl/core_dispatch.h>
#include <openssl/core_names.h>
#include <openssl/err.h>
#include <openssl/fips_names.h>
#include <openssl/params.h>
#include <openssl/provider.h>

#include <array>
#include <map>
#include <memory>

#include "agent/thread/locks.h"
#include "config/install_root.h"
#include "platform/error_codes.h"
#include "platform/paths.h"
#include "platform/shared_library.h"
#include "util/process_mutex.h"

namespace korvane {
namespace {

constexpr char kProvider[] = "fips";
constexpr char kSettingsFile[] = "fipsmodule.cnf";
constexpr char kSettingsSection[] = "fips_sect";
constexpr uint64_t kMaxSettingsBytes = 64 * 1024;

using ModuleSettings = std::map<std::string, std::string>;

// The cryptographic library, and so its module, is the process's.
ProcessMutex moduleLock;

// What the module is given when it asks its host. They outlive the module, which keeps
// pointers to them.
struct Module {
  std::unique_ptr<platform::SharedLibrary> library;
  OSSL_provider_init_fn* init = nullptr;
  ModuleSettings settings;
  OSSL_PROVIDER* provider = nullptr;
};
// Never destroyed: the cryptographic library's own end, later than that of any object here,
// still calls it.
Module& module() {
  static Module& one = *new Module;
  return one;
}

int answerModule(const OSSL_CORE_HANDLE*, OSSL_PARAM parameters[]) {
  for (const auto& [name, value] : module().settings) {
    OSSL_PARAM* const asked = OSSL_PARAM_locate(parameters, name.c_str());
    if (asked && !OSSL_PARAM_set_utf8_ptr(asked, value.c_str())) return 0;
  }
  return 1;
}

// Starts the module with the library's own functions, but for the one that gives it its settings:
// so neither a configuration file of the process nor a search path has a say.
int startModule(const OSSL_CORE_HANDLE* handle, const OSSL_DISPATCH* given,
                const OSSL_DISPATCH** out, void** context) {
  static std::array<OSSL_DISPATCH, 128> functions;
  size_t count = 0;
  for (; given[count].function_id != 0; ++count) {
    if (count + 1 == functions.size()) return 0;
    functions[count] = given[count];
    if (given[count].function_id == OSSL_FUNC_CORE_GET_PARAMS)
      functions[count].function = reinterpret_cast<void (*)(void)>(&answerModule);
  }
  functions[count] = {0, nullptr};
  return module().init(handle, functions.data(), out, context);
}

bool readSettings(platform::Files& files, const std::string& path, ModuleSettings& settings) {
  std::string text;
  if (platform::readWholeFile(files, path, kMaxSettingsBytes, text) != 0) return false;
  const std::unique_ptr<BIO, decltype(&BIO_free)> bytes(
      BIO_new_mem_buf(text.data(), static_cast<int>(text.size())), &BIO_free);
  const std::unique_ptr<CONF, decltype(&NCONF_free)> read(NCONF_new(nullptr), &NCONF_free);
  if (!bytes || !read || NCONF_load_bio(read.get(), bytes.get(), nullptr) != 1) return false;
  STACK_OF(CONF_VALUE)* const section = NCONF_get_section(read.get(), kSettingsSection);
  for (int i = 0; section && i < sk_CONF_VALUE_num(section); ++i) {
    const CONF_VALUE* const entry = sk_CONF_VALUE_value(section, i);
    settings[entry->name] = entry->value;
  }
  return settings.contains(OSSL_PROV_FIPS_PARAM_MODULE_MAC);
}

bool openLibrary(platform::SharedLibraries& libraries, const std::string& path,
                 std::string& error) {
  if (libraries.load(path, module().library, error) != platform::kOk) return false;
  module().init =
      reinterpret_cast<OSSL_provider_init_fn*>(module().library->symbol("OSSL_provider_init"));
  if (!module().init) error = path + ": not a module of OpenSSL";
  return module().init != nullptr;
}

bool startProvider() {
  static const bool registered = OSSL_PROVIDER_add_builtin(nullptr, kProvider, &startModule) == 1;
  if (registered)
    module().provider = OSSL_PROVIDER_try_load(nullptr, kProvider, /*retain_fallbacks=*/1);
  return module().provider != nullptr;
}

bool load(platform::Files& files, platform::SharedLibraries& libraries, std::string& error) {
  const std::string root = installRoot();
  const std::string path = platform::joinPath(files, {root, libraries.fileName(kProvider)});
  const std::string settingsPath = platform::joinPath(files, {root, kSettingsFile});
  module().settings = {{OSSL_PROV_PARAM_CORE_MODULE_FILENAME, path}};
  if (!readSettings(files, settingsPath, module().settings)) {
    error = settingsPath + ": missing, or without a module-mac";
    return false;
  }
  if (!openLibrary(libraries, path, error)) return false;
  if (startProvider()) return true;
  error = path + ": its check of itself failed";
  return false;
}

}  // namespace

bool loadFipsModule(platform::Files& files, platform::SharedLibraries& libraries,
                    std::string& error) {
  const ProcessLock hold(moduleLock);
  if (module().provider || load(files, libraries, error)) return true;
  module().library.reset();
  if (ERR_peek_last_error() == 0) {
    ERR_new();
    ERR_set_error(ERR_LIB_CRYPTO, ERR_R_INIT_FAIL, nullptr);
  }
  return false;
}

}  // namespace korvane
