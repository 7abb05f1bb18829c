// Readers of the agent's state files (docs/file-formats.md) that share nothing with the agent.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "simulate/oracle/wire.h"

namespace korvane::simulation {

std::string sha256(std::string_view bytes);  // lower-case hexadecimal
uint64_t fnv1a(std::string_view bytes);

struct IniFile {
  std::map<std::string, std::string> values;  // the first of each key
  // Why an agent that also has a fallback.ini would not accept it; empty: it would.
  std::string fault;
};
IniFile readIni(const std::string& bytes);

// The settings that an agent would start with: agent.ini, or fallback.ini when it is damaged.
std::map<std::string, std::string> settingsOf(const DiskView& disk, const std::string& root);

// What an agent could not load of each, or an empty text.
std::string pointerFault(const std::string& bytes);
std::string nextLogsFault(const std::string& bytes);
std::string journalFault(const std::string& bytes);
std::string itemsFault(const std::string& bytes);

// The log and the offset that a pointer file names.
struct ReadPosition {
  std::string log;
  int64_t offset = 0;
};
ReadPosition readPointer(const std::string& bytes);

}  // namespace korvane::simulation
