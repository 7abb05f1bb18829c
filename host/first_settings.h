// Creates the agent's initial settings at an installation and removes its data at an
// uninstallation.
//
// Paths are UTF-8. Failures are thrown as std::runtime_error with file and reason. Called by the
// installer, one at a time, while the agent does not run.
#pragma once

#include <string>

namespace korvane::host {

struct FirstSettings {
  std::string serverUrl;  // "https://host:port/path/"; empty: none is written
  std::string
      certificate;  // a PEM file with what the server's certificate must chain to; empty: none
};

// Writes ROOT\IPS\agent.ini from "agent-default.ini" beside this program and these settings, the
// certificate copied to ROOT\IPS\server-ca.pem. An agent that has settings already, agent.ini or
// fallback.ini, keeps them all as they are. Returns what was done, a line for the installer's log.
std::string writeFirstSettings(const std::string& root, const FirstSettings& settings);

// Removes all that the agent made or was given below ROOT\IPS but its logs, and the IDS folders
// when they are empty. Returns what stays, a line.
std::string removeSettings(const std::string& root);

}  // namespace korvane::host
