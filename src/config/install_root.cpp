#include "config/install_root.h"

#include "agent/thread/locks.h"
#include "platform/error_codes.h"
#include "platform/paths.h"
#include "platform/platform.h"
#include "platform/registry.h"
#include "platform/system_info.h"
#include "util/thread_annotations.h"

namespace korvane {
namespace {

Win32Mutex rootLock;
std::string root GUARDED_BY(rootLock);

std::string findRoot() {
  platform::Platform& system = platform::current();
  std::string found = system.systemInfo.environment("KORVANE_INSTALL_ROOT");
  if (!found.empty()) return found;
  STRING value;
  if (system.registry.readString(kAgentRegistryKey, "InstallRoot", value) != platform::kOk)
    return {};
  return value.toUtf8();
}

std::string below(const std::string& name) {
  const std::string base = installRoot();
  if (base.empty()) return {};
  return platform::joinPath(platform::current().files, {base, name});
}

}  // namespace

std::string installRoot() {
  const Synchronized hold(rootLock);
  if (root.empty()) root = findRoot();
  return root;
}

std::string installDirectory() {
  return below("IPS");
}
std::string idsDirectory() {
  return below("IDS");
}

void setInstallRoot(const std::string& newRoot) {
  const Synchronized hold(rootLock);
  root = newRoot;
}

std::string resolveIdsLogName(const std::string& name) {
  if (!name.starts_with("..")) return name;
  return platform::joinPath(platform::current().files, {idsDirectory(), "bin", name});
}

}  // namespace korvane
