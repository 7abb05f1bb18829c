// Which requests docs/protocol.md allows.
#include <algorithm>
#include <array>
#include <sstream>

#include "simulate/oracle/model_server.h"

namespace korvane::simulation {

namespace {

const std::array<const char*, 5> kUpdateNames = {"update.configuration", "update.policy",
                                                 "update.software", "update.policy.ids",
                                                 "update.configuration.ids"};
const std::array<const char*, 4> kContentNames = {"update.qel", "update.ferrolyn.revocation",
                                                  "update.ferrolyn.settings",
                                                  "update.ferrolyn.vexvt"};
const std::array<const char*, 10> kStatus = {
    "result.type",       "result.errorcode", "result.errormessage", "rid.applied",
    "rid.group",         "policy.name",      "policy.path",         "agent.timezone",
    "agent.domain.name", "agent.osversion"};
const std::array<const char*, 17> kAttributes = {"agent.initial.group",
                                                 "agent.config.initial.group",
                                                 "config.initial.group",
                                                 "agent.charset",
                                                 "agent.name",
                                                 "agent.opstate.interval",
                                                 "agent.id",
                                                 "agent.features",
                                                 "ids.policy.initial.group",
                                                 "ids.config.initial.group",
                                                 "agent.version",
                                                 "agent.hostname",
                                                 "agent.ipaddress",
                                                 "agent.os",
                                                 "agent.osversion",
                                                 "agent.timezone",
                                                 "agent.domain.name"};

template <class List>
bool has(const List& list, const std::string& name) {
  return std::find(list.begin(), list.end(), name) != list.end();
}

bool isProperties(const Part& part) {
  return part.name == "properties";
}

bool isNumber(const std::string& text) {
  const size_t digits = text.starts_with('-') ? 1 : 0;
  return text.size() > digits && text.size() < 12 &&
         text.find_first_not_of("0123456789", digits) == std::string::npos;
}

// The place of a name in a record, or -1.
int placeInRecord(const std::string& name) {
  if (name == "v2") return 0;
  if (name == "v3") return 1;
  if (name == "v1") return 2;
  if (name.size() < 2 || !isNumber(name.substr(1))) return -1;
  const int number = std::stoi(name.substr(1));
  if (name[0] == 'a' && number >= 1 && number <= 6) return 100 + number;
  if (name[0] != 'v' || number < 4 || number > 49) return -1;
  return number <= 17 ? number : 200 + number;
}

}  // namespace

void ModelServer::wire(const std::string& what) {
  _findings.add("wire: " + what);
}

void ModelServer::check(const Message& message) {
  const std::string& word = message.word;
  if (!message.guid.empty() && !_known.count(message.guid) && !_refused.count(message.guid))
    wire("the identity " + message.guid + " was never given");
  if (word == "register") return checkRegister(message);
  if (word == "result") return checkResult(message);
  if (word == "update") return checkUpdate(message);
  if (word == "log") return checkLog(message);
  if (word == "testConnection" && message.parts.empty()) return;
  const auto& parts = message.parts;
  if (word == "bulk-log" && parts.size() == 2 && !isProperties(parts[0]) &&
      isProperties(parts[1]) && parts[1].pairs.size() == 1 &&
      parts[1].pairs[0].first == "file.name")
    return;
  wire(word + " with " + std::to_string(parts.size()) + " sections");
}

void ModelServer::checkRegister(const Message& message) {
  std::set<std::string> names, idsNames;
  size_t lists = 0, binaries = 0;
  for (const Part& part : message.parts) {
    if (!isProperties(part)) {
      ++binaries;
      continue;
    }
    if (binaries) wire("register: properties behind a binary section");
    auto& known = ++lists > 2 ? idsNames : names;
    for (const auto& [name, value] : part.pairs) {
      if (!known.insert(name).second && name != "idslogrules")
        wire("register: the name " + name + " twice");
      if (lists == 1 && !has(kAttributes, name)) wire("register: the attribute " + name);
      if (name == "agent.id" && _refused.count(value))
        wire("register: the identity " + value + ", which was refused");
    }
  }
  if (lists < 2 || lists > 3 || binaries > 2)
    wire("register: " + std::to_string(lists) + " lists, " + std::to_string(binaries) +
         " binary sections");
}

void ModelServer::checkResult(const Message& message) {
  if (message.parts.empty() || !isProperties(message.parts[0]))
    return wire("result: no properties");
  const Pairs& pairs = message.parts[0].pairs;
  const std::string& type = valueOf(pairs, "result.type");
  if (type == "app.data") {
    const std::string& complete = valueOf(pairs, "application.request.complete");
    if (message.parts.size() > 2 || pairs.size() != 3 ||
        (complete != "true" && complete != "false") ||
        valueOf(pairs, "application.requestID").empty())
      wire("result: application data");
    return;
  }
  if (message.parts.size() != 1)
    wire("result: " + std::to_string(message.parts.size()) + " sections");
  if (!has(kUpdateKinds, type)) wire("result: the type " + type);
  if (!isNumber(valueOf(pairs, "result.errorcode")))
    wire("result: the code " + valueOf(pairs, "result.errorcode"));
  if (type == "software") return;
  const bool isStatus = type == "policy";
  if (isStatus ? pairs.size() < 10 && pairs.size() != 7 : pairs.size() < 3)
    wire("result: " + std::to_string(pairs.size()) + " names of the type " + type);
  for (size_t i = 10; isStatus && i < pairs.size(); ++i)
    checkLedger(pairs[i].first, pairs[i].second);
  for (size_t i = 0; i < pairs.size() && i < (isStatus ? 10 : 3); ++i)
    if (pairs[i].first != kStatus[i])
      wire("result: " + pairs[i].first + " instead of " + kStatus[i]);
}

// What was read is delivered, waits or is lost.
void ModelServer::checkLedger(const std::string& name, const std::string& value) {
  if (!name.starts_with("ledger.")) wire("result: " + name + " behind the ten names");
  if (!name.starts_with("ledger.account.")) return;
  std::istringstream words(value);
  std::string stream, since;
  uint64_t read = 0, delivered = 0, waiting = 0, lost = 0, uncounted = 0;
  words >> stream >> since >> read >> delivered >> waiting >> lost >> uncounted;
  if (!words || read != delivered + waiting + lost) wire("the account does not close: " + value);
}

void ModelServer::checkUpdate(const Message& message) {
  if (message.parts.size() != 1 || !isProperties(message.parts[0]))
    return wire("update: not one list of properties");
  const Pairs& pairs = message.parts[0].pairs;
  size_t at = 0;
  for (const char* const kind : kContentNames)
    if (at < pairs.size() && pairs[at] == std::pair<std::string, std::string>(kind, "true")) ++at;
  if (at == 4 && pairs.size() == 4) return;
  if (at) return wire("update: " + std::to_string(at) + " kinds of content");
  for (const char* const kind : kUpdateNames)
    if (at < pairs.size() && pairs[at] == std::pair<std::string, std::string>(kind, "true")) ++at;
  if (!at) wire("update: no kind");
  if (at < pairs.size() && _accepted > 1) wire("update: attributes again");
  if (at == pairs.size() && !_accepted && pairs[0].first != "update.software")
    wire("update: no attributes after a start");
  for (; at < pairs.size(); ++at)
    if (!has(kAttributes, pairs[at].first)) wire("update: the name " + pairs[at].first);
}

void ModelServer::checkLog(const Message& message) {
  if (message.parts.empty()) wire("log: no record");
  for (const Part& part : message.parts) {
    int last = -1;
    for (const auto& [name, value] : part.pairs) {
      const int place = placeInRecord(name);
      if (place <= last) wire("log: " + name + " is misplaced");
      if (value.empty()) wire("log: " + name + " is empty");
      last = place;
    }
    for (const char* const name : {"v2", "v3", "v1", "a5"})
      if (!isProperties(part) || valueOf(part.pairs, name).empty())
        wire(std::string("log: a record without ") + name);
  }
}

}  // namespace korvane::simulation
