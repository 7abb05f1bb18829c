#include "tools/server/records.h"

#include <chrono>

namespace korvane::server {

namespace {

constexpr char kSchema[] = R"(
CREATE TABLE IF NOT EXISTS agents(id INTEGER PRIMARY KEY AUTOINCREMENT, guid TEXT UNIQUE, registered_ms INTEGER, seen_ms INTEGER,
  registrations INTEGER);
CREATE TABLE IF NOT EXISTS properties(agent_id INTEGER, section TEXT, position INTEGER, name TEXT, value TEXT,
  PRIMARY KEY(agent_id, section, position)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS requests(id INTEGER PRIMARY KEY AUTOINCREMENT, at_ms INTEGER, word TEXT, agent_id INTEGER,
  guid TEXT, listener TEXT, charset TEXT, bytes INTEGER, records INTEGER, stored INTEGER, korvane_error INTEGER,
  http_status INTEGER, answered TEXT, misbehaviour TEXT, fault TEXT);
CREATE TABLE IF NOT EXISTS spans(request_id INTEGER, agent_id INTEGER, first INTEGER, last INTEGER, stored INTEGER,
  korvane_error INTEGER);
CREATE INDEX IF NOT EXISTS spans_of_request ON spans(request_id);
CREATE TABLE IF NOT EXISTS events(id INTEGER PRIMARY KEY, request_id INTEGER, agent_id INTEGER, v1 TEXT, v2 TEXT,
  v3 TEXT, fields TEXT);
CREATE TABLE IF NOT EXISTS results(id INTEGER PRIMARY KEY AUTOINCREMENT, request_id INTEGER, agent_id INTEGER,
  at_ms INTEGER, type TEXT, code INTEGER, message TEXT, properties TEXT);
CREATE TABLE IF NOT EXISTS binaries(id INTEGER PRIMARY KEY AUTOINCREMENT, request_id INTEGER, agent_id INTEGER,
  role TEXT, name TEXT, file_name TEXT, bytes BLOB);
CREATE TABLE IF NOT EXISTS application_data(id INTEGER PRIMARY KEY AUTOINCREMENT, request_id INTEGER,
  agent_id INTEGER, wanted_id TEXT, complete TEXT, size INTEGER);
CREATE TABLE IF NOT EXISTS assignments(id INTEGER PRIMARY KEY AUTOINCREMENT, at_ms INTEGER, guid TEXT, kind INTEGER,
  properties TEXT, file TEXT, until TEXT);
CREATE TABLE IF NOT EXISTS deliveries(assignment_id INTEGER, agent_id INTEGER, request_id INTEGER, at_ms INTEGER,
  result_id INTEGER, PRIMARY KEY(assignment_id, agent_id)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS bulk_files(id INTEGER PRIMARY KEY AUTOINCREMENT, binary_id INTEGER, agent_id INTEGER,
  name TEXT, sha256 TEXT, size INTEGER, received INTEGER, first_ms INTEGER, last_ms INTEGER, fault TEXT,
  UNIQUE(agent_id, name, sha256));
CREATE TABLE IF NOT EXISTS bulk_parts(file_id INTEGER, entry TEXT, kind TEXT, log TEXT, from_byte INTEGER,
  to_byte INTEGER, size INTEGER, modified_ms INTEGER, digest TEXT, path TEXT);
CREATE INDEX IF NOT EXISTS parts_of_file ON bulk_parts(file_id);
CREATE TABLE IF NOT EXISTS inventory_pieces(agent_id INTEGER, wanted_id TEXT, sha256 TEXT, at INTEGER, bytes BLOB,
  PRIMARY KEY(agent_id, wanted_id, sha256, at));
CREATE TABLE IF NOT EXISTS inventories(id INTEGER PRIMARY KEY AUTOINCREMENT, agent_id INTEGER, wanted_id TEXT,
  at_ms INTEGER, outcome TEXT, error TEXT, complete TEXT, rows INTEGER, rows_found INTEGER, skipped INTEGER,
  size INTEGER, sha256 TEXT, applications_checksum TEXT, files_checksum TEXT, fault TEXT, xml BLOB);
)";

}  // namespace

int64_t nowMs() {
  using namespace std::chrono;
  return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

struct Records::Statements {
  explicit Statements(Database& database)
      : findAgent(database, "SELECT id FROM agents WHERE guid = ?"),
        registerAgent(
            database,
            "INSERT INTO agents(guid, registered_ms, seen_ms, registrations) VALUES(?, ?2, ?2, 1) "
            "ON CONFLICT(guid) DO UPDATE SET registered_ms = ?2, seen_ms = ?2, "
            "registrations = registrations + 1"),
        agentSeen(database, "UPDATE agents SET seen_ms = ? WHERE id = ?"),
        clearProperties(database, "DELETE FROM properties WHERE agent_id = ? AND section = ?"),
        addProperty(database, "INSERT INTO properties VALUES(?, ?, ?, ?, ?)"),
        addRequest(database,
                   "INSERT INTO requests(at_ms, word, agent_id, guid, listener, charset, bytes, "
                   "records, stored, "
                   "korvane_error, http_status, answered, misbehaviour, fault) "
                   "VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, 'full', ?, ?)"),
        addSpan(database, "INSERT INTO spans VALUES(?, ?, ?, ?, ?, ?)"),
        setAnswered(database, "UPDATE requests SET answered = ? WHERE id = ?"),
        addEvent(database,
                 "INSERT INTO events(request_id, agent_id, v1, v2, v3, fields) VALUES(?, ?, ?, ?, "
                 "?, ?)"),
        addResult(
            database,
            "INSERT INTO results(request_id, agent_id, at_ms, type, code, message, properties) "
            "VALUES(?, ?, ?, ?, CAST(? AS INTEGER), ?, ?)"),
        addBinary(database,
                  "INSERT INTO binaries(request_id, agent_id, role, name, file_name, bytes) "
                  "VALUES(?, ?, ?, ?, ?, ?)"),
        addApplicationData(
            database,
            "INSERT INTO application_data(request_id, agent_id, wanted_id, complete, size) "
            "VALUES(?, ?, ?, ?, ?)") {}

  Statement findAgent, registerAgent, agentSeen, clearProperties, addProperty, addRequest, addSpan,
      setAnswered, addEvent, addResult, addBinary, addApplicationData;
};

Records::Records(const std::string& file)
    : _database(file), _statements(nullptr, [](Statements* owned) { delete owned; }) {
  _database.execute(kSchema);
  _statements.reset(new Statements(_database));
}

std::optional<int64_t> Records::findAgent(std::string_view guid) {
  Statement& query = _statements->findAgent.start(guid);
  if (!query.next()) return std::nullopt;
  const int64_t id = query.number(0);
  query.finish();
  return id;
}

int64_t Records::registerAgent(std::string_view guid) {
  _statements->registerAgent.run(guid, nowMs());
  return findAgent(guid).value();
}

void Records::agentSeen(int64_t agent) {
  _statements->agentSeen.run(nowMs(), agent);
}

void Records::forgetAgent(std::string_view guid) {
  Statement(_database, "DELETE FROM agents WHERE guid = ?").run(guid);
}

void Records::setProperties(int64_t agent, std::string_view group,
                            const WireProperties& properties) {
  _statements->clearProperties.run(agent, group);
  int64_t position = 0;
  for (const auto& [name, value] : properties)
    _statements->addProperty.run(agent, group, ++position, name, value);
}

std::string Records::property(int64_t agent, std::string_view group, std::string_view name) {
  Statement query(_database,
                  "SELECT value FROM properties WHERE agent_id = ? AND section = ? AND name = ?");
  return query.start(agent, group, name).next() ? query.text(0) : std::string();
}

int64_t Records::addRequest(const RequestFacts& facts, std::optional<int64_t> agent) {
  _statements->addRequest.run(nowMs(), facts.word, agent, facts.guid, facts.listener, facts.charset,
                              static_cast<int64_t>(facts.bytes),
                              static_cast<int64_t>(facts.records), facts.stored, facts.korvaneError,
                              facts.httpStatus, facts.misbehaviour, facts.fault);
  const int64_t request = _database.lastId();
  for (const EventSpan& span : facts.spans) {
    _statements->addSpan.run(request, agent, span.first, span.last, facts.stored,
                             facts.korvaneError);
  }
  return request;
}

void Records::setAnswered(int64_t request, std::string_view answered) {
  _statements->setAnswered.run(answered, request);
}

void Records::addEvent(int64_t request, int64_t agent, std::string_view payload) {
  _statements->addEvent.run(request, agent, propertyIn(payload, "v1"), propertyIn(payload, "v2"),
                            propertyIn(payload, "v3"), payload);
}

int64_t Records::addResult(int64_t request, int64_t agent, std::string_view payload) {
  _statements->addResult.run(request, agent, nowMs(), propertyIn(payload, "result.type"),
                             propertyIn(payload, "result.errorcode"),
                             propertyIn(payload, "result.errormessage"), payload);
  return _database.lastId();
}

void Records::addBinary(int64_t request, int64_t agent, std::string_view role,
                        const WireSection& section, std::string_view fileName) {
  _statements->addBinary.run(request, agent, role, section.name, fileName, Blob{section.payload});
}

void Records::addApplicationData(int64_t request, int64_t agent, std::string_view payload,
                                 size_t bytes) {
  _statements->addApplicationData.run(request, agent, propertyIn(payload, "application.requestID"),
                                      propertyIn(payload, "application.request.complete"),
                                      static_cast<int64_t>(bytes));
}

void Records::reset(bool keepAgents) {
  _database.execute(
      "DELETE FROM requests; DELETE FROM spans; DELETE FROM events; DELETE FROM results; DELETE "
      "FROM binaries; "
      "DELETE FROM application_data; DELETE FROM bulk_files; DELETE FROM bulk_parts; "
      "DELETE FROM inventory_pieces; DELETE FROM inventories;");
  if (!keepAgents) {
    _database.execute(
        "DELETE FROM agents; DELETE FROM properties; DELETE FROM assignments; DELETE FROM "
        "deliveries;");
  }
}

}  // namespace korvane::server
