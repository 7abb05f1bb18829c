#include "tools/server/admin.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "tools/server/bulk_files.h"
#include "tools/server/inventories.h"
#include "tools/server/notifications.h"
#include "tools/server/reports.h"

namespace korvane::server {

namespace {

using Json = nlohmann::json;

constexpr char kJsonType[] = "application/json";
constexpr int kInvalidByte = 0x100;
constexpr int kNotifiedKinds = 0x1f;  // content and application data are offered with a status

std::string dump(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

int64_t numberParameter(const httplib::Request& request, const std::string& name,
                        int64_t otherwise) {
  return request.has_param(name) ? std::stoll(request.get_param_value(name)) : otherwise;
}

Page pageOf(const httplib::Request& request) {
  Page page;
  page.guid = request.get_param_value("agent");
  page.word = request.get_param_value(request.has_param("word") ? "word" : "type");
  page.after = numberParameter(request, "after", 0);
  page.limit = numberParameter(request, "limit", page.limit);
  return page;
}

int64_t trailingNumber(const httplib::Request& request) {
  return request.matches.size() > 1 && request.matches[1].length() > 0
             ? std::stoll(request.matches[1])
             : 0;
}

const UpdateKind& kindNamed(const Json& name) {
  const std::string text = name.is_string() ? name.get<std::string>() : name.dump();
  const UpdateKind* kind = findUpdateKind(text == "application" ? "app.data" : text);
  if (kind == nullptr) throw std::invalid_argument("unknown kind " + text);
  return *kind;
}

template <typename Value>
std::optional<Value> optionalOf(const Json& body, const char* name) {
  return body.contains(name) ? std::optional(body[name].get<Value>()) : std::nullopt;
}

Fault faultOf(const Json& body) {
  Fault fault;
  const auto kind = faultKindNamed(body.at("kind").get<std::string>());
  if (!kind) throw std::invalid_argument("unknown kind " + body.at("kind").dump());
  fault.kind = *kind;
  const bool beforeRequests = *kind == FaultKind::drop || *kind == FaultKind::certificate;
  fault.word = body.value("word", beforeRequests ? "connect" : "*");
  fault.guid = body.value("agent", "");
  fault.listener = body.value("listener", "");
  fault.skip = body.value("skip", int64_t{0});
  fault.count = optionalOf<int64_t>(body, "count");
  fault.code = body.value("code", 0);
  fault.text = body.value("text", "");
  fault.wide = body.value("wide", false);
  fault.bytes = optionalOf<int64_t>(body, "bytes");
  fault.delayMs = body.value("delay_ms", int64_t{0});
  fault.store = optionalOf<bool>(body, "store");
  if (*kind == FaultKind::certificate) {
    fault.certificate =
        TlsContext::load(body.at("cert").get<std::string>(), body.at("key").get<std::string>());
  }
  return fault;
}

Json jsonOf(const Fault& fault) {
  return {{"id", fault.id},
          {"word", fault.word},
          {"kind", nameOf(fault.kind)},
          {"agent", fault.guid},
          {"listener", fault.listener},
          {"remaining", fault.count ? Json(*fault.count) : Json(nullptr)},
          {"hits", fault.hits},
          {"code", fault.code}};
}

}  // namespace

Admin::Admin(Records& records, Misbehaviour& misbehaviour, const AgentEndpoint& endpoint,
             std::string servedDirectory, AddListener addListener)
    : _records(records),
      _misbehaviour(misbehaviour),
      _endpoint(endpoint),
      _servedDirectory(std::move(servedDirectory)),
      _addListener(std::move(addListener)) {
  addReports();
  addCommands();
}

void Admin::serve(Connection& connection) {
  while (connection.waitForRequest(kIdleLimit) && _http.serveOne(connection)) {
  }
}

void Admin::answer(const Operation& operation, const httplib::Request& request,
                   httplib::Response& response) {
  try {
    const Json body = request.body.empty() ? Json::object() : Json::parse(request.body);
    response.set_content(dump(operation(request, body)), kJsonType);
  } catch (const std::exception& error) {
    response.status = 400;
    response.set_content(dump({{"error", error.what()}}), kJsonType);
  }
}

void Admin::onGet(const std::string& path, Operation operation) {
  _http.Get(path, [operation](const auto& request, auto& response) {
    answer(operation, request, response);
  });
}

void Admin::onPost(const std::string& path, Operation operation) {
  _http.Post(path, [operation](const httplib::Request& request, httplib::Response& response) {
    answer(operation, request, response);
  });
}

void Admin::onDelete(const std::string& path, Operation operation) {
  _http.Delete(path, [operation](const httplib::Request& request, httplib::Response& response) {
    answer(operation, request, response);
  });
}

void Admin::addReports() {
  onGet("/state", [this](const auto&, const auto&) {
    Json state = reportState(_records);
    state["handshakes"] = _endpoint.handshakes();
    return state;
  });
  onGet("/agents", [this](const auto&, const auto&) { return reportAgents(_records); });
  onGet("/policy-state", [this](const auto& request, const auto&) {
    return reportPolicyState(_records, request.get_param_value("agent"));
  });
  onGet("/accounting", [this](const auto& request, const auto&) {
    return reportAccounting(_records, request.get_param_value("agent"));
  });
  onGet("/files", [this](const auto&, const auto&) { return files(); });
  onGet("/requests", [this](const auto& request, const auto&) {
    return reportRequests(_records, pageOf(request));
  });
  onGet("/results", [this](const auto& request, const auto&) {
    return reportResults(_records, pageOf(request));
  });
  onGet("/records", [this](const auto& request, const auto&) {
    return reportRecords(_records, pageOf(request));
  });
  onGet("/binaries", [this](const auto& request, const auto&) {
    return reportBinaries(_records, pageOf(request));
  });
  onGet("/bulk-files", [this](const auto& request, const auto&) {
    const Page page = pageOf(request);
    return reportBulkFiles(_records, page.guid, page.after, page.limit);
  });
  onGet("/bulk-logs", [this](const auto& request, const auto&) {
    return reportBulkLogs(_records, pageOf(request).guid);
  });
  onGet("/application-data", [this](const auto& request, const auto&) {
    return reportApplicationData(_records, pageOf(request));
  });
  onGet("/inventories", [this](const auto& request, const auto&) {
    return reportInventories(_records, pageOf(request));
  });
  _http.Get(R"(/inventories/(\d+))",
            [this](const auto& request, auto& response) { sendInventory(request, response); });
  onGet("/assignments", [this](const auto&, const auto&) { return reportAssignments(_records); });
  onGet("/events", [this](const auto& request, const auto&) { return events(request); });
  onGet("/misbehave", [this](const auto&, const auto&) { return misbehaviours(); });
  _http.Get(R"(/binaries/(\d+))",
            [this](const auto& request, auto& response) { sendBinary(request, response); });
}

void Admin::addCommands() {
  onPost("/reset", [this](const auto&, const Json& body) -> Json {
    _misbehaviour.remove(0);
    MutexLock lock(_records.mutex());
    _records.reset(body.value("keep_agents", false));
    return {{"reset", true}};
  });
  onPost("/assign", [this](const auto&, const Json& body) { return assign(body); });
  onPost("/inventory", [this](const auto&, const Json& body) { return askForInventory(body); });
  onPost("/notify", [this](const auto&, const Json& body) { return notify(body); });
  onPost("/misbehave", [this](const auto&, const Json& body) { return misbehave(body); });
  onPost("/listeners", [this](const auto&, const Json& body) -> Json {
    return {{"port",
             _addListener(body.value("address", "127.0.0.1"), body.value("port", 0),
                          body.at("cert").get<std::string>(), body.at("key").get<std::string>())}};
  });
  onDelete(R"(/misbehave(?:/(\d+))?)", [this](const auto& request, const auto&) {
    _misbehaviour.remove(trailingNumber(request));
    return misbehaviours();
  });
  onDelete(R"(/assignments(?:/(\d+))?)", [this](const auto& request, const auto&) {
    {
      MutexLock lock(_records.mutex());
      removeAssignment(_records, trailingNumber(request));
    }
    return reportAssignments(_records);
  });
  onDelete(R"(/agents/([0-9A-Za-z{}-]+))", [this](const auto& request, const auto&) {
    {
      MutexLock lock(_records.mutex());
      _records.forgetAgent(request.matches[1].str());
    }
    return reportAgents(_records);
  });
}

Json Admin::events(const httplib::Request& request) {
  std::optional<EventSpan> wanted;
  if (request.has_param("from") && request.has_param("to")) {
    wanted = {numberParameter(request, "from", 0), numberParameter(request, "to", 0)};
  }
  return reportEvents(_records, request.get_param_value("agent"), wanted,
                      request.has_param("exact"));
}

Json Admin::assign(const Json& body) {
  const UpdateKind& kind = kindNamed(body.at("kind"));
  Assignment assignment;
  assignment.kind = kind.bit;
  assignment.guid = body.value("agent", "");
  // Nothing tells that a request for application data has arrived but the data itself.
  assignment.untilResult =
      kind.bit == kApplicationRequest || body.value("until", "fetched") == "result";
  const Json properties = body.value("properties", Json::object());
  for (const auto& [name, value] : properties.items()) {
    const std::string text = value.is_string() ? value.get<std::string>() : value.dump();
    if ((name + text).find('\n') != std::string::npos)
      throw std::invalid_argument("a line feed in " + name);
    assignment.properties.emplace_back(name, text);
  }
  if (kind.hasFile) {
    auto name = std::filesystem::path(body.at("file").get<std::string>());
    if (body.value("signed", false)) name += ".signed";
    const auto path = std::filesystem::path(_servedDirectory) / name.filename();
    if (name != name.filename() || !std::filesystem::is_regular_file(path)) {
      throw std::invalid_argument("no file " + name.string() + " in " + _servedDirectory);
    }
    assignment.file = path;
  }
  Json answer;
  {
    MutexLock lock(_records.mutex());
    answer["id"] = addAssignment(_records, assignment);
  }
  if (body.value("notify", false)) {
    answer.update(notify({{"agent", assignment.guid}, {"byte", kind.bit & kNotifiedKinds}}));
  }
  return answer;
}

// A request for application data, under an identifier of its own where none is given.
Json Admin::askForInventory(const Json& body) {
  const std::string request = body.value("request", "inventory-" + std::to_string(nowMs()));
  if (request.empty()) throw std::invalid_argument("the request has no identifier");
  Json answer = assign({{"kind", "application"},
                        {"agent", body.value("agent", "")},
                        {"properties", {{"send.application.requestID", request}}}});
  answer["request"] = request;
  return answer;
}

Json Admin::files() {
  Json list = Json::array();
  for (const auto& file : std::filesystem::directory_iterator(_servedDirectory)) {
    if (file.is_regular_file())
      list.push_back({{"name", file.path().filename().string()}, {"size", file.file_size()}});
  }
  std::sort(list.begin(), list.end());
  return list;
}

Admin::NotificationTarget Admin::targetOf(const Json& body) {
  NotificationTarget target;
  const std::string guid = body.value("agent", "");
  if (!guid.empty()) {
    MutexLock lock(_records.mutex());
    const auto agent = _records.findAgent(guid);
    if (!agent) throw std::invalid_argument("unknown agent " + guid);
    target.address = _records.property(*agent, "attributes", "agent.ipaddress");
    target.port = std::atoi(_records.property(*agent, "configuration", "tcp.port").c_str());
  }
  target.address = body.value("address", target.address.empty() ? "127.0.0.1" : target.address);
  target.port = body.value("port", target.port);
  if (target.port <= 0) throw std::invalid_argument("no port: name one, or a registered agent");
  return target;
}

Json Admin::notify(const Json& body) {
  int byte = body.value("byte", 0);
  for (const Json& kind : body.value("kinds", Json::array())) byte |= kindNamed(kind).bit;
  if (byte < 0 || byte >= kInvalidByte) throw std::invalid_argument("kinds that fit in no byte");
  const NotificationTarget target = targetOf(body);
  const int64_t count = body.value("count", int64_t{1});
  for (int64_t i = 0; i < count; ++i) {
    sendNotification(target.address, target.port, static_cast<unsigned char>(byte));
  }
  return {{"sent", count}, {"byte", byte}};
}

Json Admin::misbehave(const Json& body) {
  return {{"id", _misbehaviour.add(faultOf(body))}};
}

Json Admin::misbehaviours() const {
  Json list = Json::array();
  for (const Fault& fault : _misbehaviour.list()) list.push_back(jsonOf(fault));
  return list;
}

void Admin::sendBinary(const httplib::Request& request, httplib::Response& response) {
  const auto bytes = binaryBytes(_records, trailingNumber(request));
  if (bytes) return response.set_content(*bytes, "application/octet-stream");
  response.status = 404;
}

void Admin::sendInventory(const httplib::Request& request, httplib::Response& response) {
  std::optional<std::string> xml;
  {
    MutexLock lock(_records.mutex());
    xml = inventoryXml(_records, trailingNumber(request));
  }
  if (xml) return response.set_content(*xml, "application/xml");
  response.status = 404;
}

}  // namespace korvane::server
