#include "tools/server/assignments.h"

#include <array>

namespace korvane::server {

namespace {

constexpr std::array kKinds = {
    UpdateKind{1, "update.configuration", "config", false, ""},
    UpdateKind{2, "update.policy", "policy", true, "policy"},
    UpdateKind{4, "update.software", "software", true, "zipdata"},
    UpdateKind{8, "update.policy.ids", "policy.ids", true, "policy"},
    UpdateKind{16, "update.configuration.ids", "config.ids", false, ""},
    UpdateKind{32, "update.qel", "qel", true, "zipdata"},
    UpdateKind{64, "update.ferrolyn.revocation", "ferrolyn.revocation", true, "zipdata"},
    UpdateKind{128, "update.ferrolyn.settings", "ferrolyn.settings", true, "zipdata"},
    UpdateKind{256, "update.ferrolyn.vexvt", "ferrolyn.vexvt", true, "zipdata"},
    UpdateKind{kApplicationRequest, "send.application.request", "app.data", false, ""},
};

// The newest assignment of each kind for an agent, while it is still to be offered.
constexpr char kOffered[] = R"(
SELECT a.id, a.kind, a.guid, a.properties, a.file, a.until, a.at_ms FROM assignments a
WHERE a.id IN (SELECT max(b.id) FROM assignments b JOIN agents g ON g.id = ?1
               WHERE b.guid = '' OR b.guid = g.guid GROUP BY b.kind)
  AND NOT EXISTS (SELECT 1 FROM deliveries d WHERE d.assignment_id = a.id AND d.agent_id = ?1
                  AND (a.until = 'fetched' OR d.result_id IS NOT NULL))
ORDER BY a.kind)";

Assignment readRow(const Statement& row) {
  Assignment assignment;
  assignment.id = row.number(0);
  assignment.kind = static_cast<int>(row.number(1));
  assignment.guid = row.text(2);
  assignment.properties = readProperties(row.text(3));
  assignment.file = row.text(4);
  assignment.untilResult = row.text(5) == "result";
  assignment.atMs = row.number(6);
  return assignment;
}

}  // namespace

std::span<const UpdateKind> updateKinds() {
  return kKinds;
}

const UpdateKind* findUpdateKind(std::string_view name) {
  for (const UpdateKind& kind : kKinds) {
    if (name == kind.key || name == kind.resultType || name == std::to_string(kind.bit))
      return &kind;
  }
  return nullptr;
}

int64_t addAssignment(Records& records, const Assignment& assignment) {
  std::string properties;
  for (const auto& [name, value] : assignment.properties) properties += name + "=" + value + "\n";
  Statement insert(records.database(),
                   "INSERT INTO assignments(at_ms, guid, kind, properties, file, until) VALUES(?, "
                   "?, ?, ?, ?, ?)");
  insert.run(nowMs(), assignment.guid, assignment.kind, properties, assignment.file,
             std::string_view(assignment.untilResult ? "result" : "fetched"));
  return records.database().lastId();
}

void removeAssignment(Records& records, int64_t id) {
  Statement(records.database(), "DELETE FROM assignments WHERE id = ?1 OR ?1 = 0").run(id);
}

std::vector<Assignment> assignmentsFor(Records& records, int64_t agent) {
  std::vector<Assignment> offered;
  Statement query(records.database(), kOffered);
  query.start(agent);
  while (query.next()) offered.push_back(readRow(query));
  return offered;
}

void noteFetched(Records& records, int64_t assignment, int64_t agent, int64_t request) {
  Statement(records.database(),
            "INSERT INTO deliveries(assignment_id, agent_id, request_id, at_ms) VALUES(?, ?, ?, ?) "
            "ON CONFLICT DO UPDATE SET request_id = excluded.request_id, at_ms = excluded.at_ms")
      .run(assignment, agent, request, nowMs());
}

void noteReported(Records& records, int64_t agent, std::string_view resultType, int64_t result) {
  const UpdateKind* kind = findUpdateKind(resultType);
  if (kind == nullptr) return;
  Statement(records.database(),
            "UPDATE deliveries SET result_id = ?1 WHERE agent_id = ?2 AND result_id IS NULL AND "
            "assignment_id = "
            "(SELECT max(a.id) FROM assignments a JOIN deliveries d ON d.assignment_id = a.id "
            "WHERE d.agent_id = ?2 AND a.kind = ?3)")
      .run(result, agent, kind->bit);
}

}  // namespace korvane::server
