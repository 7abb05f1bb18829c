#include "agent/installation.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include "config/ini_files.h"
#include "config/install_root.h"
#include "eventlog/event_log.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "platform/platform.h"
#include "platform/processes.h"
#include "platform/rights.h"
#include "platform/shared_library.h"
#include "platform/system_info.h"

namespace korvane {
namespace {

constexpr char kTag[] = "KorvaneAgent";

// Each once, however many paths it concerns.
std::vector<std::string> faultsOf(platform::Rights& rights, const std::vector<std::string>& paths) {
  std::vector<std::string> faults;
  for (const std::string& path : paths) {
    const std::string fault = rights.fault(path);
    if (!fault.empty() && std::find(faults.begin(), faults.end(), fault) == faults.end())
      faults.push_back(fault);
  }
  return faults;
}

std::vector<std::string> indispensable(platform::Platform& system) {
  platform::SystemInfo& info = system.systemInfo;
  return {platform::joinPath(system.files, {info.moduleDirectory(),
                                            system.sharedLibraries.fileName("korvane-agent")}),
          installedFile("agent.ini"), installedFile("fallback.ini"),
          info.environment("KORVANE_REGISTRY"), info.environment("KORVANE_RUN_DIR")};
}

std::string translator(const platform::Platform& system) {
  return platform::joinPath(system.files,
                            {installDirectory(), "bin", system.processes.fileName("translate")});
}

std::string translatorLibrary(const platform::Platform& system) {
  return platform::joinPath(system.files, {installDirectory(), "extensions",
                                           system.sharedLibraries.fileName("kavipstranslator")});
}

std::string joined(const std::vector<std::string>& faults) {
  std::string text;
  for (const std::string& fault : faults) text += (text.empty() ? "" : "; ") + fault;
  return text;
}

bool agentsOwn(std::string_view name) {
  return !isSettingsFile(name);
}

// The component's own settings are its own to write.
bool forIdsComponent(std::string_view name) {
  return name.ends_with(".request") || (name.ends_with(".properties") && name != "ids.properties");
}

template <class Concerns>
void sweep(platform::Files& files, const std::string& directory, Concerns concerns) {
  std::vector<platform::DirectoryEntry> entries;
  if (directory.empty() || files.list(directory, entries) != 0) return;
  platform::removeUnfinished(files, directory, concerns);
  for (const platform::DirectoryEntry& entry : entries)
    if (entry.isDirectory)
      platform::removeUnfinished(files, platform::joinPath(files, {directory, entry.name}),
                                 concerns);
}

}  // namespace

void lookAtInstallation(platform::Platform& system) {
  platform::Rights& rights = system.rights;
  std::vector<std::string> paths = indispensable(system);
  if (rights.faultsAllowed()) {
    paths.insert(paths.end(), {translator(system), translatorLibrary(system)});
    for (const std::string& fault : faultsOf(rights, paths))
      eventlog::event(EventId::unsafeFileUsed, kTag, {fault});
    return;
  }
  const std::vector<std::string> faults = faultsOf(rights, paths);
  if (!faults.empty()) throw std::runtime_error(joined(faults) + ". Correct owner and rights");
  // The library is told of when it is to be loaded.
  if (const std::string fault = rights.fault(translator(system)); !fault.empty())
    eventlog::event(EventId::unsafeFileNotUsed, kTag, {fault});
}

void removeUnfinishedFiles(platform::Files& files) {
  sweep(files, installDirectory(), agentsOwn);
  sweep(files, idsDirectory(), forIdsComponent);
}

}  // namespace korvane
