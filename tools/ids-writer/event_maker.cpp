#include "ids-writer/event_maker.h"

#include <array>
#include <ctime>

namespace korvane::ids_writer {
namespace {

constexpr uint32_t kEmptyPercent = 9;
constexpr uint32_t kQuotedPercent = 5;
constexpr size_t kFirstFreeField = 4;  // type, sequence number and time come before
constexpr uint32_t kFewestFields = 20;
constexpr uint32_t kMostFields = 25;

constexpr std::array kTypes = {"TFIM", "TREG", "TLOG", "TNET", "PBOP", "PCRE", "AUSR"};
constexpr std::array kUsers = {"SYSTEM", "LOCAL SERVICE", "administrator", "jm\xc3\xbcller",
                               "svc_backup"};
constexpr std::array kPrograms = {"C:\\Windows\\System32\\svchost.exe", "C:\\Windows\\explorer.exe",
                                  "C:\\Program Files\\Web\\bin\\httpd.exe", "/usr/sbin/sshd"};
constexpr std::array kRules = {"file-integrity", "registry-guard", "login-watch", "port-scan"};
constexpr std::array kQuoted = {"\"opened, then renamed\"",
                                "\"value \"\"Run\"\" changed, was empty\"",
                                "\"10.0.0.7, 10.0.0.9\""};

// "2026-11-21 03:28:17.123", 23 characters, UTC.
std::string timeText(int64_t wallMs) {
  const std::time_t seconds = static_cast<std::time_t>(wallMs / 1000);
  std::tm parts{};
  if (const std::tm* utc = std::gmtime(&seconds)) parts = *utc;
  std::array<char, 32> text{};
  const size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S.", &parts);
  const std::string milliseconds = std::to_string(1000 + wallMs % 1000);
  return std::string(text.data(), length) + milliseconds.substr(1);
}

}  // namespace

EventMaker::EventMaker(uint64_t seed, uint32_t repeatPercent)
    : _random(seed), _repeatPercent(repeatPercent) {}

uint32_t EventMaker::below(uint32_t bound) {
  return static_cast<uint32_t>(_random() % bound);
}

std::string EventMaker::field(size_t position) {
  switch (position) {
    case 4:
      return "host-" + std::to_string(below(40));
    case 5:
      return kUsers[below(kUsers.size())];
    case 6:
      return kPrograms[below(kPrograms.size())];
    case 7:
      return std::to_string(below(65536));
    case 8:
      return kRules[below(kRules.size())];
    default:
      return "item" + std::to_string(below(1000000));
  }
}

void EventMaker::makeFields() {
  _type = kTypes[below(kTypes.size())];
  _fields.clear();
  const uint32_t count = kFewestFields + below(kMostFields - kFewestFields + 1);
  for (size_t position = kFirstFreeField; position <= count; ++position) {
    const uint32_t chance = below(100);
    _fields += ',';
    if (chance < kEmptyPercent) continue;
    _fields +=
        chance < kEmptyPercent + kQuotedPercent ? kQuoted[below(kQuoted.size())] : field(position);
  }
}

std::string EventMaker::next(uint64_t sequence, int64_t wallMs) {
  if (!_fields.empty() && below(100) < _repeatPercent)
    ++_repeated;
  else
    makeFields();
  return _type + ',' + std::to_string(sequence) + ',' + timeText(wallMs) + _fields;
}

std::string EventMaker::marker(const char* type, int64_t wallMs, const std::string& nextFile) {
  return std::string(type) + ",0," + timeText(wallMs) + ',' + nextFile;
}

}  // namespace korvane::ids_writer
