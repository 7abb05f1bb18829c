// What the server does with an agent's requests: one operation for a whole request, body in, answer
// out.
//
// Everything that a request changes is one database transaction, committed before the answer is
// made. Errors of the request, and of the database, are answers with a Korvane-Error; the numbers
// are below. handle() may be called by many threads at once; they take turns.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tools/server/assignments.h"
#include "tools/server/records.h"
#include "tools/server/request_rules.h"

namespace korvane::server {

// Korvane-Error values that the server gives of itself.
inline constexpr int kDatabaseError = 300;
inline constexpr int kUnknownAgent = 400;
inline constexpr int kMalformedMessage = 700;

// The seven path words; "result" serves both results and application data.
bool isPathWord(std::string_view word);

struct AgentRequest {
  std::string word;
  HeaderLines headers;
  std::string guid;  // the header "Korvane-GUID", or empty
  std::string version;
  std::string contentType;
  std::string charset;
  std::string listener;
  std::string body;
  std::string misbehaviour;  // to be noted with the request
};

struct AgentAnswer {
  int korvaneError = 0;
  int httpStatus = 200;
  bool wide = false;  // error text in UTF-16LE
  std::string body;
  int64_t request = 0;  // its number in the database
  int64_t agent = 0;
  std::vector<int64_t> fetched;  // assignments that the answer carries
};

// How a request is to be treated that a fault of the server hits.
struct Refusal {
  int korvaneError = 0;  // 0: no error answer
  int httpStatus = 200;
  std::string text;
  bool wide = false;
  bool store = true;    // take in what the request carries
  bool noGuid = false;  // leave the identity out of a registration answer
};

class AgentService {
 public:
  // With countOnly, events are counted and their sequence numbers kept, but not their fields.
  AgentService(Records& records, bool countOnly);

  AgentAnswer handle(const AgentRequest& request, const Refusal& refusal = {});
  // Notes a request whose body was not read, or not to its end.
  int64_t noteUnread(const AgentRequest& request, const std::string& fault);
  // To be called when the answer has gone out, or not: "full", "part", "none".
  void answered(const AgentAnswer& answer, std::string_view how);

 private:
  struct Exchange;
  void carryOut(Exchange& exchange) REQUIRES(_records.mutex());
  void checkRequest(Exchange& exchange) REQUIRES(_records.mutex());
  void dispatch(Exchange& exchange) REQUIRES(_records.mutex());
  void registerAgent(Exchange& exchange) REQUIRES(_records.mutex());
  void sendUpdates(Exchange& exchange) REQUIRES(_records.mutex());
  void sendUpdate(Exchange& exchange, const UpdateKind& kind,
                  const std::vector<Assignment>& offered);
  void storeResult(Exchange& exchange) REQUIRES(_records.mutex());
  void storeStatus(int64_t agent, WireProperties status) REQUIRES(_records.mutex());
  void fulfil(Exchange& exchange, std::string_view properties) REQUIRES(_records.mutex());
  void offer(Exchange& exchange) REQUIRES(_records.mutex());
  void storeEvents(Exchange& exchange) REQUIRES(_records.mutex());
  void storeUpload(Exchange& exchange) REQUIRES(_records.mutex());

  Records& _records;
  const bool _countOnly;
};

}  // namespace korvane::server
