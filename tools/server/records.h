// What was received, in the database: agents, requests, results, events, binary parts.
//
// Records owns the database and its prepared statements; its operations belong between the making
// of a Transaction on database() and its commit, all under mutex(). Failures throw DatabaseError.
// Times are milliseconds since 1970 (UTC).
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/server/database.h"
#include "tools/server/events.h"
#include "tools/server/mutex.h"
#include "tools/server/wire_message.h"

namespace korvane::server {

// One request as it is kept, whatever became of it.
struct RequestFacts {
  std::string word;
  std::string guid;
  std::string listener;
  std::string charset;
  size_t bytes = 0;
  size_t records = 0;            // properties sections of a "log" message
  std::vector<EventSpan> spans;  // sequence numbers those carried
  bool stored = false;           // whether what it carried was taken into the database
  int korvaneError = 0;          // as answered
  int httpStatus = 200;          // as answered
  std::string misbehaviour;      // the kinds that hit it, joined by blanks
  std::string fault;             // what was wrong with the request itself
};

class Records {
 public:
  explicit Records(const std::string& file);

  Mutex& mutex() RETURN_CAPABILITY(_mutex) { return _mutex; }
  Database& database() REQUIRES(_mutex) { return _database; }

  std::optional<int64_t> findAgent(std::string_view guid) REQUIRES(_mutex);
  // A new agent, or a known one registering again.
  int64_t registerAgent(std::string_view guid) REQUIRES(_mutex);
  void agentSeen(int64_t agent) REQUIRES(_mutex);
  // Its identity is unknown from now on; what it sent stays.
  void forgetAgent(std::string_view guid) REQUIRES(_mutex);
  // Replaces one group ("attributes", "configuration", "ids", "status", "ledger") of an agent's properties.
  void setProperties(int64_t agent, std::string_view group, const WireProperties& properties)
      REQUIRES(_mutex);

  // Empty when there is none.
  std::string property(int64_t agent, std::string_view group, std::string_view name)
      REQUIRES(_mutex);

  int64_t addRequest(const RequestFacts& facts, std::optional<int64_t> agent) REQUIRES(_mutex);
  // How the answer went out: "full", "part" or "none".
  void setAnswered(int64_t request, std::string_view answered) REQUIRES(_mutex);
  void addEvent(int64_t request, int64_t agent, std::string_view payload) REQUIRES(_mutex);
  int64_t addResult(int64_t request, int64_t agent, std::string_view payload) REQUIRES(_mutex);
  // `role` is "registration", "bulk-log" or "app.data".
  void addBinary(int64_t request, int64_t agent, std::string_view role, const WireSection& section,
                 std::string_view fileName) REQUIRES(_mutex);
  void addApplicationData(int64_t request, int64_t agent, std::string_view payload, size_t bytes)
      REQUIRES(_mutex);

  // Forgets everything that arrived; agents and assignments stay when asked.
  void reset(bool keepAgents) REQUIRES(_mutex);

 private:
  Mutex _mutex;
  Database _database GUARDED_BY(_mutex);
  struct Statements;
  std::unique_ptr<Statements, void (*)(Statements*)> _statements GUARDED_BY(_mutex);
};

int64_t nowMs();

}  // namespace korvane::server
