#include "tools/server/misbehaviour.h"

#include <algorithm>
#include <array>

namespace korvane::server {

namespace {

constexpr std::array<std::pair<std::string_view, FaultKind>, 17> kNames = {{
    {"delay", FaultKind::delay},
    {"error", FaultKind::error},
    {"http", FaultKind::http},
    {"dropBeforeRead", FaultKind::dropBeforeRead},
    {"dropAfterRead", FaultKind::dropAfterRead},
    {"dropInAnswer", FaultKind::dropInAnswer},
    {"cut", FaultKind::cut},
    {"slow", FaultKind::slow},
    {"dataLength", FaultKind::dataLength},
    {"oversized", FaultKind::oversized},
    {"endlessHeaders", FaultKind::endlessHeaders},
    {"garbage", FaultKind::garbage},
    {"garbageBody", FaultKind::garbageBody},
    {"raw", FaultKind::raw},
    {"noGuid", FaultKind::noGuid},
    {"drop", FaultKind::drop},
    {"certificate", FaultKind::certificate},
}};

bool matches(const Fault& fault, std::string_view word, std::string_view guid,
             std::string_view listener) {
  const bool wordMatches = fault.word == word || (fault.word == "*" && word != "connect");
  return wordMatches && (fault.guid.empty() || fault.guid == guid) &&
         (fault.listener.empty() || fault.listener == listener) && fault.count.value_or(1) > 0;
}

}  // namespace

std::optional<FaultKind> faultKindNamed(std::string_view name) {
  for (const auto& [known, kind] : kNames) {
    if (known == name) return kind;
  }
  return std::nullopt;
}

std::string_view nameOf(FaultKind kind) {
  return std::ranges::find(kNames, kind, &std::pair<std::string_view, FaultKind>::second)->first;
}

int64_t Misbehaviour::add(Fault fault) {
  MutexLock lock(_mutex);
  fault.id = ++_lastId;
  _faults.push_back(std::move(fault));
  return _lastId;
}

void Misbehaviour::remove(int64_t id) {
  MutexLock lock(_mutex);
  std::erase_if(_faults, [&](const Fault& fault) { return id == 0 || fault.id == id; });
}

std::vector<Fault> Misbehaviour::list() const {
  MutexLock lock(_mutex);
  return _faults;
}

std::vector<Fault> Misbehaviour::strike(std::string_view word, std::string_view guid,
                                        std::string_view listener) {
  MutexLock lock(_mutex);
  std::vector<Fault> struck;
  bool other = false;
  for (Fault& fault : _faults) {
    const bool isDelay = fault.kind == FaultKind::delay;
    if ((!isDelay && other) || !matches(fault, word, guid, listener)) continue;
    if (fault.skip > 0) {
      --fault.skip;
      continue;
    }
    ++fault.hits;
    if (fault.count) --*fault.count;
    other = other || !isDelay;
    struck.insert(isDelay ? struck.begin() : struck.end(), fault);
  }
  return struck;
}

}  // namespace korvane::server
