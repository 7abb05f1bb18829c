// Where the agent is installed. Paths are UTF-8 with the system's separator.
//
// The root is the environment variable KORVANE_INSTALL_ROOT, which the host service sets for its
// own process, or else the registry value "InstallRoot" under
// HKEY_LOCAL_MACHINE\SOFTWARE\Dalvora\Intrusion Security\agent. It is looked up once in a run and
// kept; empty, and looked up again the next time, when neither is there. Thread-safe.
#pragma once

#include <string>

namespace korvane {

// The registry key, below HKEY_LOCAL_MACHINE, that holds "AgentType" and "InstallRoot".
inline constexpr char kAgentRegistryKey[] = "SOFTWARE\\Dalvora\\Intrusion Security\\agent";

std::string installRoot();
// installRoot()/IPS: the agent's own files. Empty when there is no root.
std::string installDirectory();
// A file of the agent's own. Empty when there is no root.
std::string installedFile(const std::string& name);
// A path as a setting has it: a relative one is below installDirectory().
std::string placeOfSetting(const std::string& path);
// installRoot()/IDS: the IDS component's files. Empty when there is no root.
std::string idsDirectory();
// Takes this root instead, without asking anyone; an empty one forgets what was found.
void setInstallRoot(const std::string& root);

// A log name that the IDS component reports: one that begins with ".." is relative to IDS/bin, any
// other is taken as it is.
std::string resolveIdsLogName(const std::string& name);

}  // namespace korvane
