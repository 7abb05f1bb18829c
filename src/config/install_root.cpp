#include "config/install_root.h"

#include "agent/thread/locks.h"
#include "platform/error_codes.h"
#include "platform/paths.h"
#include "platform/platform.h"
#include "platform/registry.h"
#include "platform/system_info.h"
#include "util/agent_run.h"
#include "util/thread_annotations.h"

namespace korvane {
namespace {

struct KeptRoot {
  Win32Mutex lock;
  std::string path GUARDED_BY(lock);
};

KeptRoot& kept() {
  return AgentRun::current().part<KeptRoot>(RunPart::installRoot);
}

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
  KeptRoot& root = kept();
  const Synchronized hold(root.lock);
  if (root.path.empty()) root.path = findRoot();
  return root.path;
}

std::string installDirectory() {
  return below("IPS");
}
std::string installedFile(const std::string& name) {
  const std::string base = installDirectory();
  return base.empty() ? base : platform::joinPath(platform::current().files, {base, name});
}
std::string placeOfSetting(const std::string& path) {
  return platform::isAbsolutePath(path) ? path : installedFile(path);
}
std::string idsDirectory() {
  return below("IDS");
}

void setInstallRoot(const std::string& newRoot) {
  KeptRoot& root = kept();
  const Synchronized hold(root.lock);
  root.path = newRoot;
}

std::string resolveIdsLogName(const std::string& name) {
  if (!name.starts_with("..")) return name;
  return platform::joinPath(platform::current().files, {idsDirectory(), "bin", name});
}

}  // namespace korvane
