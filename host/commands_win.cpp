// The commands that put the host into the service manager, take it out, and are run by it.
#include "host/commands.h"

#include <cstdio>
#include <map>

#include "config/install_root.h"
#include "host/agent_library.h"
#include "host/directory_access_win.h"
#include "host/first_settings.h"
#include "host/messages.h"
#include "host/service_entry_win.h"
#include "host/service_handles_win.h"
#include "host/service_main_win.h"
#include "host/system_failure_win.h"
#include "host/text_win.h"
#include "platform/rights.h"

namespace korvane::host {
namespace {

// Beyond the agent's own time to stop, for the way of the request and the end of the process.
constexpr uint32_t kBeyondDeadlineSeconds = 5;

struct Installation {
  Options& options;
  ServiceEntry entry;
  bool writesSettings = false;
  FirstSettings settings = {};
  uint32_t stopSeconds = AgentService::kStopDeadlineSeconds + kBeyondDeadlineSeconds;
};

std::string rootOf(const Options& options) {
  const std::string root =
      options.installRoot.empty() ? registeredRoot() : fullPath(options.installRoot);
  if (root.empty())
    throw std::runtime_error(
        "no installation directory: neither --install-root nor the registry value InstallRoot is "
        "set");
  return root;
}

// The root holds what everyone may run; the agent's and the IDS component's own files are closed.
void protect(const std::string& root) {
  const std::pair<std::string, const char*> directories[] = {{root, kReadableAccess},
                                                             {root + "\\IPS", kClosedAccess},
                                                             {root + "\\IPS\\logs", kClosedAccess},
                                                             {root + "\\IDS", kClosedAccess},
                                                             {root + "\\IDS\\bin", kClosedAccess}};
  for (const auto& [path, access] : directories) {
    protectDirectory(path, access);
    const DirectoryAccess found = readAccess(path);
    std::printf("access %s %s\n", path.c_str(), found.text.c_str());
    for (const std::string& stranger : found.strangers)
      throw std::runtime_error("the directory " + path + " may be changed by " + stranger);
  }
}

// A stranger may have made the folders, and put files into them, before the product came.
void repair(const std::string& root) {
  for (const auto& [path, depth] : {std::pair(root, Depth::entries),
                                    {root + "\\IPS", Depth::everything},
                                    {root + "\\IDS", Depth::everything}})
    for (const std::string& repaired : repairContents(path, depth))
      std::printf("repaired owner and access list of %s\n", repaired.c_str());
}

// The service of the usual name is the machine's agent: other programs find its files
// through the registry.
void registerRoot(const std::string& root) {
  platform::RegistryKey key;
  LSTATUS error =
      ::RegCreateKeyExW(HKEY_LOCAL_MACHINE, wide(kAgentRegistryKey).c_str(), 0, nullptr, 0,
                        KEY_SET_VALUE | KEY_WOW64_64KEY, nullptr, key.receive(), nullptr);
  const std::wstring value = wide(root);
  if (!error)
    error = ::RegSetValueExW(key.get(), L"InstallRoot", 0, REG_SZ,
                             reinterpret_cast<const BYTE*>(value.c_str()),
                             static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
  if (error)
    throw systemFailure(
        "write InstallRoot in HKEY_LOCAL_MACHINE\\" + std::string(kAgentRegistryKey),
        static_cast<DWORD>(error));
}

// Set by the installer package of a newer version before it has the older one removed.
constexpr wchar_t kUpgrading[] = L"Upgrading";

bool upgrading() {
  return ::RegGetValueW(HKEY_LOCAL_MACHINE, wide(kAgentRegistryKey).c_str(), kUpgrading,
                        RRF_RT_REG_SZ | RRF_SUBKEY_WOW6464KEY, nullptr, nullptr,
                        nullptr) == ERROR_SUCCESS;
}

void endUpgrade() {
  platform::RegistryKey key;
  if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, wide(kAgentRegistryKey).c_str(), 0,
                      KEY_SET_VALUE | KEY_WOW64_64KEY, key.receive()) == ERROR_SUCCESS)
    ::RegDeleteValueW(key.get(), kUpgrading);
}

std::string settingsAfter(const std::string& root) {
  if (upgrading()) return "settings kept: a newer version is being installed";
  return removeSettings(root);
}

void describeCommand(const Options& options, ServiceEntry& entry) {
  if (entry.displayName.empty())
    entry.displayName = entry.name == kServiceName
                            ? kServiceDisplayName
                            : std::string(kServiceDisplayName) + " (" + entry.name + ")";
  entry.command = {programPath(), "service"};
  if (!options.installRoot.empty())
    entry.command.insert(entry.command.end(), {"--install-root", fullPath(options.installRoot)});
  if (!options.library.empty())
    entry.command.insert(entry.command.end(), {"--library", fullPath(options.library)});
  if (options.allowUnsafe) entry.command.push_back("--allow-unsafe");
  if (options.stopDeadlineSeconds != AgentService::kStopDeadlineSeconds)
    entry.command.insert(entry.command.end(),
                         {"--stop-deadline", std::to_string(options.stopDeadlineSeconds)});
  entry.shutdownSeconds = options.stopDeadlineSeconds + kBeyondDeadlineSeconds;
}

// Who may replace the program or the library is as good as the system.
void lookAtPrograms(const Options& options, std::vector<std::string>& notes) {
  const std::string library = options.library.empty()
                                  ? programDirectory() + "\\" + agentLibraryName()
                                  : fullPath(options.library);
  for (const std::string& path : {programPath(), library}) {
    const std::string unsafe = platform::unsafePart(path);
    if (unsafe.empty()) continue;
    if (!options.allowUnsafe)
      throw std::runtime_error("the service runs as LocalSystem, and " + unsafe);
    notes.push_back("the service runs as LocalSystem, and " + unsafe);
  }
}

int install(Installation& installation) {
  const Options& options = installation.options;
  ServiceEntry& entry = installation.entry;
  const std::string root = rootOf(options);
  describeCommand(options, entry);
  protect(root);
  repair(root);
  std::vector<std::string> notes;
  lookAtPrograms(options, notes);
  if (installation.writesSettings)
    std::printf("%s\n", writeFirstSettings(root, installation.settings).c_str());
  const EntryChange change = writeServiceEntry(entry, notes);
  if (change == EntryChange::refused) {
    say("the service " + entry.name + " runs another program: " + serviceCommandLine(entry.name));
    return kExitOtherService;
  }
  if (entry.name == kServiceName) registerRoot(root);
  endUpgrade();
  for (const std::string& note : notes) std::printf("note: %s\n", note.c_str());
  std::printf("service %s %s: %s\n", entry.name.c_str(),
              change == EntryChange::made ? "installed" : "updated",
              serviceCommandLine(entry.name).c_str());
  return kExitStopped;
}

int uninstall(const Installation& installation) {
  const std::string& name = installation.entry.name;
  switch (removeServiceEntry(name, installation.stopSeconds)) {
    case EntryRemoval::removed:
      std::printf("service %s removed\n", name.c_str());
      return kExitStopped;
    case EntryRemoval::missing:
      say("there is no service " + name);
      return kExitNoService;
    default:
      say("the service " + name + " did not stop within " +
          std::to_string(installation.stopSeconds) + " s and stays");
      return kExitNotReturned;
  }
}

void addInstall(CLI::App& app, std::shared_ptr<Installation> installation, Command& chosen) {
  CLI::App* command = app.add_subcommand(
      "install", "Secures the installation directories and creates or updates the service");
  addAgentOptions(*command, installation->options);
  command->add_option("--name", installation->entry.name, "The service's name")
      ->capture_default_str();
  command->add_option("--display-name", installation->entry.displayName, "The name shown to users");
  command->add_flag("--first-settings", installation->writesSettings,
                    "Writes agent.ini when the agent has no settings yet");
  command->add_option("--server-url", installation->settings.serverUrl,
                      "For the first settings: the management server, https://host:port/path/");
  command->add_option(
      "--certificate", installation->settings.certificate,
      "For the first settings: a PEM file with the CA that the server's certificate must chain to");
  static const std::map<std::string, ServiceStart> starts = {{"auto", ServiceStart::automatic},
                                                             {"delayed", ServiceStart::delayed},
                                                             {"demand", ServiceStart::demand}};
  command->add_option("--start", installation->entry.start, "When it starts; default: auto")
      ->transform(CLI::CheckedTransformer(starts));
  command->callback(
      [installation, &chosen] { chosen = [installation] { return install(*installation); }; });
}

void addUninstall(CLI::App& app, std::shared_ptr<Installation> installation, Command& chosen) {
  CLI::App* command =
      app.add_subcommand("uninstall", "Stops and removes the service; files are left alone");
  command->add_option("--name", installation->entry.name, "The service's name")
      ->capture_default_str();
  command->add_option("--stop-timeout", installation->stopSeconds, "Seconds to wait for it to stop")
      ->capture_default_str();
  command->callback(
      [installation, &chosen] { chosen = [installation] { return uninstall(*installation); }; });
}

void addRemoveSettings(CLI::App& app, Options& options, Command& chosen) {
  CLI::App* command = app.add_subcommand(
      "remove-settings", "Removes the agent's settings, state and policies; logs are kept");
  command->add_option("--install-root", options.installRoot, "Where the agent is installed");
  command->callback([&options, &chosen] {
    chosen = [&options] {
      std::printf("%s\n", settingsAfter(rootOf(options)).c_str());
      return kExitStopped;
    };
  });
}

}  // namespace

void addSystemCommands(CLI::App& app, CLI::App& run, Options& options, Command& chosen) {
  run.add_option("--stop-event", options.stopEvent, "A named event that stops the agent when set");
  const auto installation = std::make_shared<Installation>(Installation{options, {}});
  addInstall(app, installation, chosen);
  addUninstall(app, installation, chosen);
  addRemoveSettings(app, options, chosen);
  CLI::App* asService =
      app.add_subcommand("service", "Run by the service manager; not for use by hand");
  addAgentOptions(*asService, options);
  asService->callback([&options, &chosen] { chosen = [&options] { return runService(options); }; });
}

}  // namespace korvane::host
