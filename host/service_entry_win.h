// The host's entry in the service manager: how the service is called, what it runs and
// when, and what happens when it fails.
//
// A service in its own process under the LocalSystem account, which the agent needs for its driver.
// It depends on no other service: the agent waits for a network by itself, and its protection must
// not wait for one. A failure, the agent's own end included, starts it again after 5, 30 and 60
// seconds, the last for every further one; a day without a failure restarts the count. Of the
// account's privileges the service's process keeps the two that it needs.
//
// Names and paths are UTF-8. Failures are thrown with name and number. Threads: any, one
// command at a time.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace korvane::host {

inline constexpr char kServiceName[] = "KorvaneAgent";
inline constexpr char kServiceDisplayName[] = "Korvane Agent";

enum class ServiceStart { automatic, delayed, demand };

struct ServiceEntry {
  std::string name = kServiceName;
  // No two services have the same.
  std::string displayName;
  ServiceStart start = ServiceStart::automatic;
  // What the service manager runs; each is quoted where it has to be, the program always.
  std::vector<std::string> command;
  // How long a shutdown of the machine waits for the service.
  uint32_t shutdownSeconds = 0;
};

enum class EntryChange { made, updated, refused };

// Makes the entry, or gives the one that is there these settings when it runs a program of
// this one's file name; any other is left as it is and refused. `notes` gets a line for each
// setting that this system's service manager does not keep. An entry that was made is
// removed again when its settings fail.
EntryChange writeServiceEntry(const ServiceEntry& entry, std::vector<std::string>& notes);

// The command line that the service manager keeps.
std::string serviceCommandLine(const std::string& name);

enum class EntryRemoval { removed, missing, running };

// Stops the service, waits that long for the end of its process, and removes the entry; one that
// does not stop keeps its entry.
EntryRemoval removeServiceEntry(const std::string& name, uint32_t stopSeconds);

}  // namespace korvane::host
