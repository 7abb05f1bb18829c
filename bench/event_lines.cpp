#include "bench/event_lines.h"

#include <array>

#include "util/dates.h"

namespace korvane::bench {
namespace {

constexpr std::array<const char*, 5> kTypes = {"PFIL", "TNET", "PREG", "PSYS", "PBUF"};
constexpr std::array<const char*, 17> kWords = {"severity-",
                                                "policy-web-",
                                                "write",
                                                "denied",
                                                "svc_reports",
                                                "uid-",
                                                "/usr/lib/daemons/reportd-",
                                                "pid-",
                                                "ppid-",
                                                "/srv/ledger/current/volume-",
                                                "digest:",
                                                "mask-",
                                                "rule matched by the list of protected places ",
                                                "resource-",
                                                "session:",
                                                "inode:",
                                                "flags:"};

}  // namespace

uint32_t EventLines::below(uint32_t limit) {
  _state ^= _state << 13, _state ^= _state >> 7, _state ^= _state << 17;
  return static_cast<uint32_t>((_state >> 16) % limit);
}

std::string EventLines::field(const char* word, uint32_t digits) {
  if (below(100) < 9) return {};
  std::string text = word;
  for (uint32_t i = 0; i < digits; ++i) text += static_cast<char>('0' + below(10));
  if (below(100) >= _quotedPercent) return text;
  return "\"" + text + (below(5) == 0 ? ", \"\"so\"\" it was" : ", and more") + "\"";
}

void EventLines::makeEvent() {
  _type = kTypes[below(kTypes.size())];
  _rest.clear();
  const uint32_t fields = 17 + below(6);
  for (uint32_t i = 0; i < fields; ++i)
    _rest += "," + field(kWords[i % kWords.size()], 2 + below(5));
}

std::string EventLines::header(const std::string& type) {
  return type + "," + std::to_string(++_sequence) + "," +
         formatTimestamp(static_cast<int64_t>(_timeMs));
}

const std::string& EventLines::next() {
  if (_sequence == 0 || below(100) >= _repeatPercent) makeEvent();
  _timeMs += below(40);
  return _line = header(_type) + _rest + "\n";
}

std::string EventLines::endMarker() {
  return header("MEOF") + ",,,,\n";
}

std::string makeLog(uint64_t events, unsigned repeatPercent, unsigned quotedPercent) {
  EventLines lines(repeatPercent, quotedPercent);
  std::string log;
  for (uint64_t i = 0; i < events; ++i) log += lines.next();
  return log + lines.endMarker();
}

}  // namespace korvane::bench
