#include "simulate/oracle/state_files.h"

#include <openssl/sha.h>

#include <algorithm>
#include <cstring>
#include <sstream>
#include <vector>

namespace korvane::simulation {

namespace {

constexpr size_t kPointerBytes = 4365;

std::string hex(uint64_t value) {
  std::ostringstream text;
  text << std::hex << value;
  return std::string(16 - text.str().size(), '0') + text.str();
}

std::string trimmed(const std::string& text) {
  const size_t begin = text.find_first_not_of(" \t\r");
  if (begin == std::string::npos) return "";
  return text.substr(begin, text.find_last_not_of(" \t\r") - begin + 1);
}

std::vector<std::string> linesOf(const std::string& bytes) {
  std::vector<std::string> lines;
  std::istringstream text(bytes);
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  return lines;
}

// A file that begins with one line and ends with "end " and what `proof` makes of the rest.
template <class Proof>
std::string sealFault(const std::string& bytes, const std::string& heading, const Proof& proof) {
  const size_t end = bytes.rfind("\nend ");
  if (!bytes.starts_with(heading + "\n")) return "it does not begin with " + heading;
  if (end == std::string::npos || !bytes.ends_with("\n")) return "its last line is missing";
  const std::string said = bytes.substr(end + 5, bytes.size() - end - 6);
  return said == proof(bytes.substr(0, end + 1)) ? "" : "its last line is wrong: " + said;
}

uint32_t numberAt(const std::string& bytes, size_t offset) {
  uint32_t value = 0;
  for (size_t i = 0; i < 4 && offset + i < bytes.size(); ++i)
    value |= static_cast<uint32_t>(static_cast<unsigned char>(bytes[offset + i])) << (8 * i);
  return value;
}

}  // namespace

std::string sha256(std::string_view bytes) {
  unsigned char digest[SHA256_DIGEST_LENGTH];
  SHA256(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), digest);
  std::string text;
  for (const unsigned char byte : digest) {
    text += "0123456789abcdef"[byte >> 4];
    text += "0123456789abcdef"[byte & 15];
  }
  return text;
}

uint64_t fnv1a(std::string_view bytes) {
  uint64_t hash = 0xcbf29ce484222325u;
  for (const char byte : bytes) hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3u;
  return hash;
}

IniFile readIni(const std::string& bytes) {
  IniFile file;
  size_t before = 0, at = 0;
  bool inChecksum = false;
  std::string checksum;
  if (bytes.find('\0') != std::string::npos) file.fault = "it has a NUL";
  for (const std::string& raw : linesOf(bytes)) {
    const std::string line = trimmed(raw);
    if (line == "[Checksum]" && !inChecksum) {
      inChecksum = true;
      before = at;
    }
    at += raw.size() + 1;
    const size_t equals = line.find('=');
    if (line.empty() || line[0] == ';' || line[0] == '#' || equals == std::string::npos) continue;
    const std::string key = trimmed(line.substr(0, equals));
    const std::string value = trimmed(line.substr(equals + 1));
    if (inChecksum && key == "agentini.checksum" && checksum.empty()) checksum = value;
    if (!inChecksum) file.values.emplace(key, value);
  }
  if (checksum.empty())
    file.fault += "no checksum";
  else if (checksum != "Not Computed" &&
           checksum != sha256(std::string_view(bytes).substr(0, before)))
    file.fault += "the checksum is wrong";
  return file;
}

std::map<std::string, std::string> settingsOf(const DiskView& disk, const std::string& root) {
  const auto agent = disk.read(root + "/IPS/agent.ini");
  const auto fallback = disk.read(root + "/IPS/fallback.ini");
  if (agent) {
    const IniFile file = readIni(*agent);
    if (file.fault.empty() || !fallback) return file.values;
  }
  return fallback ? readIni(*fallback).values : std::map<std::string, std::string>();
}

ReadPosition readPointer(const std::string& bytes) {
  ReadPosition position;
  for (size_t at = 1; at + 1 < std::min<size_t>(bytes.size(), 1025) && bytes[at]; at += 2)
    position.log += bytes[at];  // the paths are ASCII
  position.offset = static_cast<int32_t>(numberAt(bytes, 1025));
  return position;
}

// A file that a kill has cut short counts as one with zeros.
std::string pointerFault(const std::string& bytes) {
  if (bytes.size() > kPointerBytes) return std::to_string(bytes.size()) + " bytes";
  if (numberAt(bytes, 1033) > 2) return "a name count of " + std::to_string(numberAt(bytes, 1033));
  return readPointer(bytes).offset < 0 ? "a negative offset" : "";
}

std::string nextLogsFault(const std::string& bytes) {
  return sealFault(bytes, "korvane-next-logs 1",
                   [](const std::string& before) { return hex(fnv1a(before)); });
}

std::string journalFault(const std::string& bytes) {
  static const char* const keys[] = {
      "new.plus=", "plus=",          "path=",           "version=",   "id=",
      "builtin=",  "driver.filter=", "driver.builtin=", "had.minus=", "had.items="};
  const std::vector<std::string> lines = linesOf(bytes);
  for (size_t i = 0; i < std::size(keys); ++i)
    if (lines.size() != std::size(keys) + 2 || !lines[i + 1].starts_with(keys[i]))
      return std::string("no line ") + keys[i];
  return sealFault(bytes, "korvane-policy-change 1",
                   [](const std::string& before) { return sha256(before); });
}

std::string itemsFault(const std::string& bytes) {
  return sealFault(bytes, "korvane-items 1", [](const std::string& before) {
    return std::to_string(std::count(before.begin(), before.end(), '\n') - 1);
  });
}

}  // namespace korvane::simulation
