// What agents are to fetch: configuration, policies, software and content packages, assigned to one
// agent or to all, and the outcome.
//
// An assignment is a kind, properties and, for some kinds, a file of the served directory.
// Of the assignments of one kind that concern an agent, the newest counts. It is offered in
// the answers to status messages until it has been fetched (the answer went out whole) or,
// when it says so, until the agent has reported a result of its kind. A request for
// application data is offered until the last message of its data has come. Operations
// belong under the Records' mutex and in a transaction of its database.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "tools/server/records.h"
#include "tools/server/wire_message.h"

namespace korvane::server {

struct UpdateKind {
  int bit;
  std::string_view key;         // of a request and of an answer, for example "update.configuration"
  std::string_view resultType;  // of a result, for example "config"
  bool hasFile;                 // an answer carries a binary part ...
  std::string_view partName;    // ... under this name
};

// All kinds in ascending bits; the last one, bit 512, is the request for application data,
// which is offered only.
std::span<const UpdateKind> updateKinds();
// By bit value as text, key or result type; null for an unknown name.
const UpdateKind* findUpdateKind(std::string_view name);
inline constexpr int kApplicationRequest = 512;

struct Assignment {
  int64_t id = 0;
  int64_t atMs = 0;
  int kind = 0;
  std::string guid;  // empty: every agent
  WireProperties properties;
  std::string file;  // full path, or empty
  bool untilResult = false;
};

// Returns its number.
int64_t addAssignment(Records& records, const Assignment& assignment) REQUIRES(records.mutex());
// 0 removes all.
void removeAssignment(Records& records, int64_t id) REQUIRES(records.mutex());

// What to offer to an agent, one per kind, ascending.
std::vector<Assignment> assignmentsFor(Records& records, int64_t agent) REQUIRES(records.mutex());
void noteFetched(Records& records, int64_t assignment, int64_t agent, int64_t request)
    REQUIRES(records.mutex());
// The agent reported a result of a type: its newest fetched assignment of that kind is done.
void noteReported(Records& records, int64_t agent, std::string_view resultType, int64_t result)
    REQUIRES(records.mutex());

}  // namespace korvane::server
