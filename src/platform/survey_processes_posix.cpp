#include <arpa/inet.h>
#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <vector>

#include "platform/reading_posix.h"
#include "platform/survey_posix.h"

namespace korvane::platform {
namespace {

constexpr size_t kMostStatBytes = 1024;
constexpr size_t kMostSockets = 65536;  // that are looked for at once
constexpr char kSocketLink[] = "socket:[";

bool isGone(int error) {
  return error == ENOENT || error == ESRCH || error == ENOTDIR;
}

bool parseNumber(std::string_view text, uint64_t& out, int base = 10) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), out, base);
  return error == std::errc() && end == text.data() + text.size();
}

// Each process's folder of /proc, while the guide lets it.
template <class Each>
void eachProcess(SurveyGuide& guide, const std::string& below, Each each) {
  OpenFolder all(AT_FDCWD, below + "/proc", true);
  while (guide.goOn()) {
    const char* name = all.next();
    if (!name) break;
    uint64_t id = 0;
    if (!parseNumber(name, id)) continue;
    const OpenFolder one(all.descriptor(), name, false);
    if (!one.error()) each(id, one.descriptor());
  }
  if (all.error()) guide.skipped(below + "/proc", all.error());
}

// "811 (sshd) S 1 ...": the name may hold anything, also blanks and brackets.
bool parseStat(std::string_view text, SurveyedProcess& out) {
  const size_t open = text.find('('), close = text.rfind(')');
  if (open == std::string_view::npos || close == std::string_view::npos || close < open)
    return false;
  out.name = text.substr(open + 1, close - open - 1);
  const std::string_view rest = text.substr(close + 1);
  const size_t parent = rest.find_first_not_of(' ', 2);
  if (parent == std::string_view::npos) return false;
  return parseNumber(rest.substr(parent, rest.find(' ', parent) - parent), out.parent);
}

// Its program; empty for a thread of the kernel and for what may not be read.
std::string imageOf(SurveyGuide& guide, const std::string& proc, uint64_t id, int folder) {
  const std::string image = linkTarget(folder, "exe");
  if (image.empty() && !isGone(errno))
    guide.skipped(proc + "/" + std::to_string(id) + "/exe", errno);
  return image;
}

struct Listener {
  uint64_t socket;
  std::array<uint32_t, 4> address;  // as the kernel has it
  uint16_t port;
  bool udp, six, found;
};

std::string addressText(const Listener& of) {
  char text[INET6_ADDRSTRLEN] = "";
  ::inet_ntop(of.six ? AF_INET6 : AF_INET, of.address.data(), text, sizeof text);
  return text;
}

// "  0: 0100007F:0CEA 00000000:0000 0A 00000000:00000000 00:00000000 00000000  0  0 12345 ..."
bool parseListener(std::string_view line, Listener& out) {
  std::array<std::string_view, 10> words;
  size_t at = 0;
  for (auto& word : words) {
    at = line.find_first_not_of(' ', at);
    if (at == std::string_view::npos) return false;
    const size_t end = std::min(line.find(' ', at), line.size());
    word = line.substr(at, end - at);
    at = end;
  }
  const std::string_view local = words[1];
  const size_t digits = out.six ? 32 : 8;
  if (words[3] != (out.udp ? "07" : "0A") || local.size() != digits + 5) return false;
  uint64_t number = 0;
  for (size_t part = 0; part * 8 < digits; ++part) {
    if (!parseNumber(local.substr(part * 8, 8), number, 16)) return false;
    out.address[part] = static_cast<uint32_t>(number);
  }
  if (!parseNumber(local.substr(digits + 1), number, 16)) return false;
  out.port = static_cast<uint16_t>(number);
  return parseNumber(words[9], out.socket);
}

std::vector<Listener> listeners(SurveyGuide& guide, const std::string& below) {
  std::vector<Listener> all;
  for (const char* name : {"tcp", "tcp6", "udp", "udp6"}) {
    const std::string path = below + "/proc/net/" + name;
    Descriptor file;
    const int error = openPlain(AT_FDCWD, path, true, file);
    if (error && error != ENOENT) guide.skipped(path, error);
    if (error) continue;
    TextLines lines(std::move(file));
    for (std::string line; guide.goOn() && lines.next(line);) {
      Listener one{0, {}, 0, *name == 'u', name[3] == '6', false};
      if (!parseListener(line, one)) continue;
      if (all.size() == kMostSockets) {
        guide.skipped(path, ENOBUFS);
        break;
      }
      all.push_back(one);
    }
    if (lines.error()) guide.skipped(path, lines.error());
  }
  std::sort(all.begin(), all.end(), [](auto& a, auto& b) { return a.socket < b.socket; });
  return all;
}

SurveyedPort rowOf(const Listener& of) {
  return {of.udp ? "udp" : "tcp", addressText(of), of.port, 0, {}};
}

Listener* listenerOf(std::vector<Listener>& all, const std::string& link) {
  uint64_t socket = 0;
  const size_t prefix = sizeof kSocketLink - 1;
  if (!link.starts_with(kSocketLink) || !link.ends_with(']') ||
      !parseNumber(std::string_view(link).substr(prefix, link.size() - prefix - 1), socket))
    return nullptr;
  const auto found = std::lower_bound(all.begin(), all.end(), socket,
                                      [](const Listener& a, uint64_t b) { return a.socket < b; });
  return found != all.end() && found->socket == socket ? &*found : nullptr;
}

}  // namespace

void surveyProcesses(SurveyGuide& guide, const std::string& below,
                     const Survey::Taker<SurveyedProcess>& take) {
  eachProcess(guide, below, [&](uint64_t id, int folder) {
    SurveyedProcess row;
    row.id = id;
    std::string text;
    if (readStart(folder, "stat", kMostStatBytes, text) != 0 || !parseStat(text, row)) return;
    row.image = imageOf(guide, below + "/proc", id, folder);
    if (readStart(folder, "cmdline", kMostTextBytes, row.commandLine) != 0) row.commandLine.clear();
    while (row.commandLine.ends_with('\0')) row.commandLine.pop_back();
    std::replace(row.commandLine.begin(), row.commandLine.end(), '\0', ' ');
    take(row);
  });
}

void surveyPorts(SurveyGuide& guide, const std::string& below,
                 const Survey::Taker<SurveyedPort>& take) {
  std::vector<Listener> all = listeners(guide, below);
  if (all.empty()) return;
  eachProcess(guide, below, [&](uint64_t id, int folder) {
    OpenFolder open(folder, "fd", false);
    std::vector<const Listener*> told;  // a process may hold a socket more than once
    for (const char* name; guide.goOn() && (name = open.next()) != nullptr;) {
      Listener* const one = listenerOf(all, linkTarget(open.descriptor(), name));
      if (!one || std::find(told.begin(), told.end(), one) != told.end()) continue;
      told.push_back(one);
      one->found = true;
      SurveyedPort row = rowOf(*one);
      row.process = id;
      row.image = imageOf(guide, below + "/proc", id, folder);
      take(row);
    }
    if (open.error() && !isGone(open.error()))
      guide.skipped(below + "/proc/" + std::to_string(id) + "/fd", open.error());
  });
  for (const Listener& one : all) {
    if (!guide.goOn()) return;
    if (!one.found) take(rowOf(one));
  }
}

}  // namespace korvane::platform
