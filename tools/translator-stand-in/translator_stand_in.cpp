// A stand-in for the translator library: it tells what the translation items of a policy need to
// know about this machine, and nothing more. It knows the functions "LocalIPs" (the addresses of
// the interfaces that are up) and "HostName". It keeps no state but the count of its users
// and, while there are any, its way to the system.
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/files.h"
#include "platform/native.h"
#include "platform/system_info.h"
#include "translator/translator_abi.h"
#include "util/export.h"
#include "util/string.h"

namespace {

using korvane::STRING;

constexpr int32_t kNotInitialized = 1;
constexpr int32_t kNoSuchFunction = 2;
constexpr int32_t kFailed = 3;

struct Machine {
  std::unique_ptr<korvane::platform::SystemInfo> system = korvane::platform::makeNativeSystemInfo();
  std::unique_ptr<korvane::platform::Files> files = korvane::platform::makeNativeFiles();
};

std::mutex usersLock;
int users = 0;
std::shared_ptr<Machine> machineOfUsers;

// Null without a user.
std::shared_ptr<Machine> machine() {
  std::lock_guard hold(usersLock);
  return machineOfUsers;
}

int32_t functionValues(Machine& of, const std::string& name, std::vector<std::string>& values) {
  if (name == "LocalIPs")
    values = of.system->ipAddresses();
  else if (name == "HostName")
    values = {of.system->hostName()};
  else
    return kNoSuchFunction;
  return 0;
}

int32_t list(Machine& of, const KavipsChar* name, KavipsValueSink sink, void* context) {
  std::vector<std::string> values;
  const int32_t error = functionValues(of, STRING(name).toUtf8(), values);
  for (const std::string& value : values)
    if (sink(context, STRING(value).c_str()) != 0) break;
  return error;
}

}  // namespace

extern "C" {

KORVANE_EXPORT uint32_t kavipsTranslatorAbiVersion() {
  return KAVIPS_TRANSLATOR_ABI_VERSION;
}

KORVANE_EXPORT int32_t kavipsTranslatorInitialize(const KavipsChar* extensionsPath) {
  if (!extensionsPath) return kFailed;
  try {
    std::lock_guard hold(usersLock);
    if (!machineOfUsers) machineOfUsers = std::make_shared<Machine>();
    ++users;
    return 0;
  } catch (...) {
    return kFailed;
  }
}

KORVANE_EXPORT int32_t kavipsTranslatorGetFunctionValues(const KavipsChar* name,
                                                         KavipsValueSink sink, void* context) {
  const std::shared_ptr<Machine> of = machine();
  if (!of) return kNotInitialized;
  if (!name || !sink) return kFailed;
  try {
    return list(*of, name, sink, context);
  } catch (...) {
    return kFailed;
  }
}

KORVANE_EXPORT int32_t kavipsTranslatorFileExists(const KavipsChar* path) {
  const std::shared_ptr<Machine> of = machine();
  if (!path || !of) return 0;
  try {
    korvane::platform::FileInfo info;
    return of->files->info(STRING(path).toUtf8(), info) == 0 ? 1 : 0;
  } catch (...) {
    return 0;
  }
}

KORVANE_EXPORT void kavipsTranslatorShutdown() {
  std::lock_guard hold(usersLock);
  if (users > 0 && --users == 0) machineOfUsers.reset();
}

}  // extern "C"
