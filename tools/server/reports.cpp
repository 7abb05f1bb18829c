#include "tools/server/reports.h"

#include <algorithm>
#include <cstdlib>

namespace korvane::server {

namespace {

using Json = nlohmann::json;

// How many gaps and spans an answer lists at most; the sums are complete.
constexpr size_t kListedSpans = 200;
constexpr size_t kListedChanges = 50;

Json cell(sqlite3_stmt* row, int column) {
  switch (sqlite3_column_type(row, column)) {
    case SQLITE_INTEGER:
      return sqlite3_column_int64(row, column);
    case SQLITE_FLOAT:
      return sqlite3_column_double(row, column);
    case SQLITE_NULL:
      return nullptr;
    default:
      return reinterpret_cast<const char*>(sqlite3_column_text(row, column));
  }
}

// Every row as an object, its keys being the columns' names.
template <typename... Values>
Json rows(Database& database, std::string_view sql, const Values&... values) {
  Json list = Json::array();
  Statement query(database, sql);
  query.start(values...);
  while (query.next()) {
    Json object = Json::object();
    const int columns = sqlite3_column_count(query.handle());
    for (int i = 0; i < columns; ++i)
      object[sqlite3_column_name(query.handle(), i)] = cell(query.handle(), i);
    list.push_back(std::move(object));
  }
  return list;
}

template <typename... Values>
Json onlyRow(Database& database, std::string_view sql, const Values&... values) {
  Json list = rows(database, sql, values...);
  return list.empty() ? Json(nullptr) : list[0];
}

Json asObject(const std::string& payload) {
  Json object = Json::object();
  for (const auto& [name, value] : readProperties(payload)) object[name] = value;
  return object;
}

void unfold(Json& list, const std::string& column) {
  for (Json& row : list) row[column] = asObject(row[column].get<std::string>());
}

Json listOf(const std::vector<EventSpan>& spans) {
  Json list = Json::array();
  for (const EventSpan& span : spans) {
    if (list.size() == kListedSpans) break;
    list.push_back({span.first, span.last});
  }
  return list;
}

constexpr char kOfAgent[] = "(?1 = '' OR agent_id = (SELECT id FROM agents WHERE guid = ?1))";

Json pageOf(Records& records, const std::string& columns, const std::string& table,
            const std::string& wordColumn, const Page& page) {
  const std::string sql = "SELECT " + columns + " FROM " + table + " WHERE " + kOfAgent +
                          " AND (?2 = '' OR " + wordColumn +
                          " = ?2) AND id > ?3 ORDER BY id LIMIT ?4";
  MutexLock lock(records.mutex());
  return rows(records.database(), sql, page.guid, page.word, page.after, page.limit);
}

Json policyStateIn(const Json& result) {
  const std::string payload = result["properties"];
  Json state = {{"code", result["code"]}, {"message", result["message"]}};
  for (const char* name : {"policy.name", "policy.path", "rid.applied", "rid.group"})
    state[name] = std::string(propertyIn(payload, name));
  return state;
}

Json policyChanges(Database& database, int64_t agent) {
  Json changes = Json::array();
  Json last;
  for (const Json& result : rows(database,
                                 "SELECT code, message, at_ms, properties FROM results "
                                 "WHERE agent_id = ? AND type = 'policy' ORDER BY id",
                                 agent)) {
    Json state = policyStateIn(result);
    if (state == last) continue;
    last = state;
    state["at_ms"] = result["at_ms"];
    changes.push_back(std::move(state));
  }
  if (changes.size() > kListedChanges)
    changes.erase(changes.begin(), changes.end() - kListedChanges);
  return changes;
}

std::vector<EventSpan> spansWhere(Database& database, const std::string& condition,
                                  const std::string& guid) {
  std::vector<EventSpan> spans;
  Statement query(database, std::string("SELECT first, last FROM spans WHERE ") + kOfAgent +
                                " AND " + condition);
  query.start(guid);
  while (query.next()) spans.push_back({query.number(0), query.number(1)});
  return spans;
}

std::string takeWord(std::string_view& rest) {
  const size_t end = std::min(rest.find(' '), rest.size());
  const std::string word(rest.substr(0, end));
  rest.remove_prefix(std::min(end + 1, rest.size()));
  return word;
}

int64_t takeCount(std::string_view& rest) {
  return std::strtoll(takeWord(rest).c_str(), nullptr, 10);
}

Json accountIn(std::string_view text) {
  Json account = {{"log", takeWord(text)}, {"since", takeWord(text)}};
  for (const char* name : {"read", "delivered", "waiting", "ledgered", "uncounted"})
    account[name] = takeCount(text);
  account["missing"] = Json::array();
  return account;
}

Json lossIn(std::string_view text) {
  const std::string stream = takeWord(text);
  Json loss = {{"log", stream == "-" ? "" : stream}, {"cause", takeWord(text)}};
  loss["counted"] = takeWord(text) == "counted";
  for (const char* name : {"count", "parts", "from", "to"}) loss[name] = takeCount(text);
  for (const char* name : {"first", "last"}) loss[name] = takeWord(text);
  loss["path"] = text == "-" ? "" : std::string(text);
  return loss;
}

// `covered`: event lines that are here, each as often as it came.
Json accountingOf(const Json& properties, int64_t covered) {
  Json report = {{"logs", Json::array()}, {"files", Json::array()}};
  for (const Json& property : properties) {
    const std::string name = property["name"], value = property["value"];
    if (name.starts_with("ledger.account.")) report["logs"].push_back(accountIn(value));
    if (!name.starts_with("ledger.entry.")) continue;
    Json loss = lossIn(value);
    Json* missing = &report["files"];
    for (Json& account : report["logs"])
      if (account["log"] == loss["log"]) missing = &account["missing"];
    missing->push_back(std::move(loss));
  }
  bool complete = report["files"].empty();
  for (Json& account : report["logs"]) {
    const int64_t delivered = account["delivered"];
    account["closed"] = account["read"] == delivered + account["waiting"].get<int64_t>() +
                                               account["ledgered"].get<int64_t>();
    account["short"] = std::max<int64_t>(0, delivered - covered);
    account["complete"] = account["closed"] && account["missing"].empty() && account["short"] == 0;
    complete = complete && account["complete"];
  }
  report["received"] = covered;
  report["complete"] = complete;
  return report;
}

}  // namespace

Json reportState(Records& records) {
  MutexLock lock(records.mutex());
  Database& database = records.database();
  Json state = onlyRow(
      database,
      "SELECT (SELECT count(*) FROM agents) agents, (SELECT count(*) FROM requests) requests, "
      "(SELECT count(*) FROM results) results, (SELECT count(*) FROM binaries) binaries, "
      "(SELECT coalesce(sum(records), 0) FROM requests WHERE stored) events, "
      "(SELECT coalesce(sum(bytes), 0) FROM requests) bytes, "
      "(SELECT count(*) FROM requests WHERE korvane_error = 700) malformed");
  state["words"] = Json::object();
  for (const Json& row :
       rows(database, "SELECT word, count(*) total FROM requests GROUP BY word")) {
    state["words"][row["word"].get<std::string>()] = row["total"];
  }
  return state;
}

Json reportAgents(Records& records) {
  MutexLock lock(records.mutex());
  Json agents = rows(records.database(), "SELECT * FROM agents ORDER BY id");
  for (Json& agent : agents) {
    for (const char* group : {"attributes", "configuration", "ids", "status", "ledger"})
      agent[group] = Json::object();
    for (const Json& row : rows(records.database(),
                                "SELECT section, name, value FROM properties WHERE agent_id = ? "
                                "ORDER BY section, position",
                                agent["id"].get<int64_t>())) {
      agent[row["section"].get<std::string>()][row["name"].get<std::string>()] = row["value"];
    }
  }
  return agents;
}

Json reportPolicyState(Records& records, const std::string& guid) {
  MutexLock lock(records.mutex());
  Database& database = records.database();
  Json list = Json::array();
  for (const Json& agent :
       rows(database, "SELECT id, guid FROM agents WHERE ?1 = '' OR guid = ?1 ORDER BY id", guid)) {
    const int64_t id = agent["id"];
    Json changes = policyChanges(database, id);
    Json state = changes.empty() ? Json::object() : changes.back();
    state["agent"] = agent["guid"];
    state["changes"] = std::move(changes);
    state["updates"] = Json::object();
    for (const Json& result : rows(database,
                                   "SELECT type, code, message, at_ms FROM results WHERE id IN "
                                   "(SELECT max(id) FROM results WHERE agent_id = ? GROUP BY type)",
                                   id))
      state["updates"][result["type"].get<std::string>()] = result;
    list.push_back(std::move(state));
  }
  return list;
}

Json reportRequests(Records& records, const Page& page) {
  constexpr char kColumns[] =
      "*, (SELECT json_group_array(json_array(first, last)) FROM spans "
      "WHERE request_id = requests.id) spans";
  Json list = pageOf(records, kColumns, "requests", "word", page);
  for (Json& request : list) request["spans"] = Json::parse(request["spans"].get<std::string>());
  return list;
}

Json reportResults(Records& records, const Page& page) {
  Json list = pageOf(records, "*", "results", "type", page);
  unfold(list, "properties");
  return list;
}

Json reportRecords(Records& records, const Page& page) {
  Json list = pageOf(records, "id, request_id, agent_id, fields", "events", "v1", page);
  unfold(list, "fields");
  return list;
}

Json reportBinaries(Records& records, const Page& page) {
  return pageOf(records, "id, request_id, agent_id, role, name, file_name, length(bytes) size",
                "binaries", "role", page);
}

Json reportApplicationData(Records& records, const Page& page) {
  return pageOf(records, "*", "application_data", "wanted_id", page);
}

Json reportAccounting(Records& records, const std::string& guid) {
  MutexLock lock(records.mutex());
  Database& database = records.database();
  Json list = Json::array();
  for (const Json& agent :
       rows(database, "SELECT id, guid FROM agents WHERE ?1 = '' OR guid = ?1 ORDER BY id", guid)) {
    const std::string identity = agent["guid"];
    Json accounting = accountingOf(
        rows(database,
             "SELECT name, value FROM properties WHERE agent_id = ? AND section = 'ledger' "
             "ORDER BY position",
             agent["id"].get<int64_t>()),
        sumSpans(spansWhere(database, "stored", identity), std::nullopt).covered);
    accounting["agent"] = identity;
    list.push_back(std::move(accounting));
  }
  return list;
}

Json reportInventories(Records& records, const Page& page) {
  return pageOf(records,
                "id, agent_id, (SELECT guid FROM agents WHERE agents.id = agent_id) agent, "
                "wanted_id request, at_ms, outcome, error, complete, rows, rows_found, skipped, "
                "size, sha256, applications_checksum, files_checksum, fault",
                "inventories", "wanted_id", page);
}

Json reportAssignments(Records& records) {
  MutexLock lock(records.mutex());
  Json list = rows(records.database(), "SELECT * FROM assignments ORDER BY id");
  for (Json& assignment : list) {
    assignment["deliveries"] =
        rows(records.database(),
             "SELECT g.guid, d.request_id, d.at_ms, r.code, r.message FROM deliveries d "
             "JOIN agents g ON g.id = d.agent_id LEFT JOIN results r ON r.id = d.result_id "
             "WHERE d.assignment_id = ?",
             assignment["id"].get<int64_t>());
  }
  unfold(list, "properties");
  return list;
}

Json reportEvents(Records& records, const std::string& guid, std::optional<EventSpan> wanted,
                  bool exact) {
  MutexLock lock(records.mutex());
  Database& database = records.database();
  const EventSums sums = sumSpans(spansWhere(database, "stored", guid), wanted);
  const auto dropped =
      sumSpans(spansWhere(database, "NOT stored AND korvane_error IN (302, 600)", guid), wanted);
  Json report = onlyRow(database,
                        std::string("SELECT coalesce(sum(records), 0) received, count(*) batches, "
                                    "coalesce(max(records), 0) largest_batch FROM requests "
                                    "WHERE word = 'log' AND stored AND ") +
                            kOfAgent,
                        guid);
  report["covered"] = sums.covered;
  report["distinct"] = sums.distinct;
  report["duplicated"] = sums.duplicated;
  report["lost"] = sums.lost;
  report["dropped_by_server"] = countOutside(dropped.arrived, sums.arrived);
  report["lost_unexplained"] = sums.lost - countIn(sums.missing, dropped.arrived);
  report["ranges"] = listOf(sums.arrived);
  report["missing"] = listOf(sums.missing);
  if (exact) {
    report["exact"] =
        onlyRow(database,
                std::string("SELECT count(*) stored, count(DISTINCT v1 || ',' || v2 || ',' || v3) "
                            "\"distinct\" FROM events WHERE ") +
                    kOfAgent,
                guid);
  }
  return report;
}

std::optional<std::string> binaryBytes(Records& records, int64_t id) {
  MutexLock lock(records.mutex());
  Statement query(records.database(), "SELECT bytes FROM binaries WHERE id = ?");
  if (!query.start(id).next()) return std::nullopt;
  return query.text(0);
}

}  // namespace korvane::server
