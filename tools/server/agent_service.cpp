#include "tools/server/agent_service.h"
#include "tools/server/inventories.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <random>
#include <sstream>

#include "tools/server/bulk_files.h"
#include "util/utf8.h"

namespace korvane::server {

namespace {

constexpr std::array<std::string_view, 6> kPathWords = {"register", "update",         "result",
                                                        "log",      "testConnection", "bulk-log"};
constexpr std::array<std::string_view, 3> kRegistrationGroups = {"attributes", "configuration",
                                                                 "ids"};
constexpr int kConfiguration = 1;
constexpr int kIdsConfiguration = 16;
constexpr std::string_view kGuidProperty = "agent.id";
constexpr std::string_view kRequestId = "send.application.requestID";

// A random identity in the usual form of 8-4-4-4-12 lower-case hexadecimal digits.
std::string newGuid() {
  std::random_device random;
  std::string guid;
  for (int i = 0; i < 32; ++i) {
    if (i == 8 || i == 12 || i == 16 || i == 20) guid += '-';
    guid += "0123456789abcdef"[random() % 16];
  }
  return guid;
}

std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << file.rdbuf();
  if (!file) throw std::runtime_error("cannot read the assigned file " + path);
  return std::move(bytes).str();
}

std::string asUtf16Le(std::string_view text) {
  std::string bytes;
  for (const char16_t unit : utf8ToUtf16(text)) {
    bytes += static_cast<char>(unit & 0xFF);
    bytes += static_cast<char>(unit >> 8);
  }
  return bytes;
}

void addMissing(WireProperties& properties, std::string_view name, const std::string& value) {
  const auto found = std::ranges::find(properties, name, &WireProperty::first);
  if (found == properties.end()) properties.emplace_back(name, value);
}

void setFirst(WireProperties& properties, std::string_view name, const std::string& value) {
  const auto found = std::ranges::find(properties, name, &WireProperty::first);
  if (found == properties.end())
    properties.emplace_back(name, value);
  else
    found->second = value;
}

// What of a request is not as the page has it; empty when nothing is.
std::string faultOf(const AgentRequest& request, const WireMessage& message) {
  if (request.version != "1.0")
    return "Korvane-Format-Version is \"" + request.version + "\", not \"1.0\"";
  if (request.contentType != "application/x-korvane")
    return "Content-Type is \"" + request.contentType + "\"";
  std::string fault = checkHeaders(request.word, request.headers);
  if (!fault.empty()) return fault;
  if (!message.error.empty()) return message.error;
  fault = checkSections(request.word, message.sections);
  return fault.empty() ? fault : "\"" + request.word + "\": " + fault;
}

}  // namespace

bool isPathWord(std::string_view word) {
  return std::ranges::find(kPathWords, word) != kPathWords.end();
}

struct AgentService::Exchange {
  const AgentRequest& request;
  const Refusal& refusal;
  RequestFacts facts = {};
  WireMessage message = {};
  AgentAnswer answer = {};
  std::string errorText = {};
  WireProperties answerProperties = {};
  std::vector<std::pair<std::string, std::string>> answerBinaries = {};  // name and bytes

  std::string_view firstProperties() const {
    const auto found = std::ranges::find_if(message.sections, &WireSection::isProperties);
    return found != message.sections.end() ? found->payload : std::string_view();
  }
  void refuse(int code, const std::string& text) {
    answer.korvaneError = code;
    errorText = text;
  }
};

AgentService::AgentService(Records& records, bool countOnly)
    : _records(records), _countOnly(countOnly) {}

AgentAnswer AgentService::handle(const AgentRequest& request, const Refusal& refusal) {
  Exchange exchange{request, refusal};
  exchange.message = readMessage(request.body);
  try {
    MutexLock lock(_records.mutex());
    Transaction transaction(_records.database());
    carryOut(exchange);
    transaction.commit();
  } catch (const std::exception& error) {
    exchange.answer.fetched.clear();
    exchange.answerBinaries.clear();
    exchange.answerProperties.clear();
    exchange.refuse(kDatabaseError, error.what());
  }
  AgentAnswer& answer = exchange.answer;
  answer.wide = refusal.wide;
  if (answer.korvaneError != 0 && !exchange.errorText.empty()) {
    writeSection(answer.body, "text/plain", "stacktrace",
                 answer.wide ? asUtf16Le(exchange.errorText) : exchange.errorText);
  }
  if (!exchange.answerProperties.empty()) writeProperties(answer.body, exchange.answerProperties);
  for (const auto& [name, bytes] : exchange.answerBinaries)
    writeSection(answer.body, "binary/zip", name, bytes);
  writeEnd(answer.body);
  return std::move(answer);
}

void AgentService::carryOut(Exchange& exchange) {
  const AgentRequest& request = exchange.request;
  exchange.facts.word = request.word;
  exchange.facts.guid = request.guid;
  exchange.facts.listener = request.listener;
  exchange.facts.charset = request.charset;
  exchange.facts.bytes = request.body.size();
  exchange.facts.misbehaviour = request.misbehaviour;
  if (request.word == "log") {
    for (const WireSection& section : exchange.message.sections) {
      ++exchange.facts.records;
      if (const auto span = spanOf(section.payload)) appendSpan(exchange.facts.spans, *span);
    }
  }
  checkRequest(exchange);
  const Refusal& refusal = exchange.refusal;
  const bool accepted = exchange.answer.korvaneError == 0;
  const bool refused = refusal.korvaneError != 0 || refusal.httpStatus != 200;
  exchange.facts.stored = accepted && refusal.store;
  exchange.facts.korvaneError = accepted ? refusal.korvaneError : exchange.answer.korvaneError;
  exchange.facts.httpStatus = exchange.answer.httpStatus = refusal.httpStatus;
  exchange.facts.fault = exchange.errorText;
  std::optional<int64_t> agent = exchange.answer.agent;
  if (agent == 0) agent.reset();
  exchange.answer.request = _records.addRequest(exchange.facts, agent);
  if (exchange.facts.stored) dispatch(exchange);
  if (accepted && refused) {
    exchange.answerProperties.clear();
    exchange.answerBinaries.clear();
    exchange.answer.fetched.clear();
    exchange.refuse(refusal.korvaneError, refusal.text);
  }
}

void AgentService::checkRequest(Exchange& exchange) {
  const AgentRequest& request = exchange.request;
  const auto agent = _records.findAgent(request.guid);
  if (agent) exchange.answer.agent = *agent;
  const std::string fault = faultOf(request, exchange.message);
  if (!fault.empty()) {
    exchange.refuse(kMalformedMessage, fault);
  } else if (!agent && request.word != "register" && request.word != "testConnection") {
    exchange.refuse(kUnknownAgent, "the agent \"" + request.guid + "\" is not known here");
  }
}

void AgentService::dispatch(Exchange& exchange) {
  const std::string& word = exchange.request.word;
  if (word != "register" && word != "testConnection") _records.agentSeen(exchange.answer.agent);
  if (word == "register") registerAgent(exchange);
  if (word == "update") sendUpdates(exchange);
  if (word == "result") storeResult(exchange);
  if (word == "log") storeEvents(exchange);
  if (word == "bulk-log") storeUpload(exchange);
}

void AgentService::registerAgent(Exchange& exchange) {
  std::string guid;
  for (const WireSection& section : exchange.message.sections) {
    const auto named = propertyIn(section.payload, kGuidProperty);
    if (section.isProperties() && _records.findAgent(named)) guid = named;
  }
  if (guid.empty()) guid = newGuid();
  const int64_t agent = exchange.answer.agent = _records.registerAgent(guid);
  size_t group = 0;
  for (const WireSection& section : exchange.message.sections) {
    if (!section.isProperties()) {
      _records.addBinary(exchange.answer.request, agent, "registration", section, "");
    } else if (group < kRegistrationGroups.size()) {
      _records.setProperties(agent, kRegistrationGroups[group++], readProperties(section.payload));
    }
  }
  if (exchange.refusal.noGuid)
    exchange.answerProperties = {{"server.note", "no identity"}};
  else
    exchange.answerProperties = {{std::string(kGuidProperty), guid}};
}

void AgentService::sendUpdates(Exchange& exchange) {
  WireProperties asked = readProperties(exchange.firstProperties());
  const auto offered = assignmentsFor(_records, exchange.answer.agent);
  for (const UpdateKind& kind : updateKinds()) {
    if (propertyOf(asked, kind.key) == "true") sendUpdate(exchange, kind, offered);
  }
  std::erase_if(asked,
                [](const WireProperty& property) { return property.first.starts_with("update."); });
  if (!asked.empty()) _records.setProperties(exchange.answer.agent, "attributes", asked);
}

void AgentService::sendUpdate(Exchange& exchange, const UpdateKind& kind,
                              const std::vector<Assignment>& offered) {
  WireProperties& properties = exchange.answerProperties;
  const auto found = std::ranges::find(offered, kind.bit, &Assignment::kind);
  if (found == offered.end()) {
    properties.emplace_back(kind.key, "false");
    return;
  }
  // Agents take settings of either configuration kind only under the first one's mark.
  if (kind.bit == kIdsConfiguration) setFirst(properties, "update.configuration", "true");
  setFirst(properties, kind.key, "true");
  std::ranges::copy(found->properties, std::back_inserter(properties));
  if (kind.bit == kConfiguration || kind.bit == kIdsConfiguration) {
    addMissing(properties, "mod.time", std::to_string(found->atMs));
    addMissing(properties, "rid.applied", std::to_string(found->id));
  }
  if (kind.hasFile) exchange.answerBinaries.emplace_back(kind.partName, readFile(found->file));
  exchange.answer.fetched.push_back(found->id);
}

void AgentService::storeResult(Exchange& exchange) {
  const auto properties = exchange.firstProperties();
  const auto type = propertyIn(properties, "result.type");
  const int64_t agent = exchange.answer.agent;
  if (type == "app.data") {
    std::string_view piece;
    for (const WireSection& section : exchange.message.sections) {
      if (section.isProperties()) continue;
      piece = section.payload;
      _records.addBinary(exchange.answer.request, agent, "app.data", section, "");
    }
    _records.addApplicationData(exchange.answer.request, agent, properties, piece.size());
    takeApplicationData(_records, agent, readProperties(properties), piece);
    if (propertyIn(properties, "application.request.complete") == "true")
      fulfil(exchange, properties);
    return;
  }
  const int64_t result = _records.addResult(exchange.answer.request, agent, properties);
  noteReported(_records, agent, type, result);
  if (type != "policy") return;
  storeStatus(agent, readProperties(properties));
  if (isStatus(properties)) offer(exchange);
}

// What a status says of the ledger stays until another one says something else.
void AgentService::storeStatus(int64_t agent, WireProperties status) {
  const auto ledger = std::ranges::find_if(
      status, [](const WireProperty& property) { return property.first.starts_with("ledger."); });
  if (ledger != status.end()) _records.setProperties(agent, "ledger", {ledger, status.end()});
  status.erase(ledger, status.end());
  _records.setProperties(agent, "status", status);
}

// The last message of application data ends the request that it names, and no other.
void AgentService::fulfil(Exchange& exchange, std::string_view properties) {
  const int64_t agent = exchange.answer.agent;
  for (const Assignment& offered : assignmentsFor(_records, agent)) {
    if (offered.kind != kApplicationRequest || propertyOf(offered.properties, kRequestId) !=
                                                   propertyIn(properties, "application.requestID"))
      continue;
    const int64_t result = _records.addResult(exchange.answer.request, agent, properties);
    noteReported(_records, agent, "app.data", result);
  }
}

void AgentService::offer(Exchange& exchange) {
  for (const Assignment& assignment : assignmentsFor(_records, exchange.answer.agent)) {
    exchange.answerProperties.emplace_back(findUpdateKind(std::to_string(assignment.kind))->key,
                                           "true");
    if (assignment.kind != kApplicationRequest) continue;
    exchange.answerProperties.emplace_back(kRequestId,
                                           propertyOf(assignment.properties, kRequestId));
    exchange.answer.fetched.push_back(assignment.id);
  }
}

void AgentService::storeEvents(Exchange& exchange) {
  if (_countOnly) return;
  for (const WireSection& section : exchange.message.sections) {
    _records.addEvent(exchange.answer.request, exchange.answer.agent, section.payload);
  }
}

void AgentService::storeUpload(Exchange& exchange) {
  const auto fileName = propertyIn(exchange.firstProperties(), "file.name");
  for (const WireSection& section : exchange.message.sections) {
    if (section.isProperties()) continue;
    storeBulkFile(_records, exchange.answer.request, exchange.answer.agent, section, fileName);
  }
}

int64_t AgentService::noteUnread(const AgentRequest& request, const std::string& fault) {
  RequestFacts facts;
  facts.word = request.word;
  facts.guid = request.guid;
  facts.listener = request.listener;
  facts.charset = request.charset;
  facts.bytes = request.body.size();
  facts.misbehaviour = request.misbehaviour;
  facts.fault = fault;
  MutexLock lock(_records.mutex());
  Transaction transaction(_records.database());
  const int64_t id = _records.addRequest(facts, _records.findAgent(request.guid));
  _records.setAnswered(id, "none");
  transaction.commit();
  return id;
}

void AgentService::answered(const AgentAnswer& answer, std::string_view how) {
  if (answer.request == 0 || (how == "full" && answer.fetched.empty())) return;
  MutexLock lock(_records.mutex());
  Transaction transaction(_records.database());
  if (how == "full") {
    for (const int64_t assignment : answer.fetched)
      noteFetched(_records, assignment, answer.agent, answer.request);
  } else {
    _records.setAnswered(answer.request, how);
  }
  transaction.commit();
}

}  // namespace korvane::server
