// One exchange with a management server as values: where it goes, and what came of it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "comm/failure_cause.h"
#include "comm/response_parser.h"
#include "comm/tls_identity.h"
#include "util/string.h"

namespace korvane {

// HTTP statuses above it are errors.
inline constexpr int kOkStatus = 200;

// A server, and how it is reached; the settings of the moment that it was made in.
struct Destination {
  STRING server;  // a host name or address
  STRING url;     // agent.http.url with that host in it
  STRING caFile;
  uint32_t connectTimeoutSeconds = 0;
  TlsIdentity identity{};
  bool plainAllowed = false;  // it may be one of http
};

struct ExchangeResult {
  // 0: an answer came, whatever its status; -1: nothing was sent; else libcurl's of the transfer.
  int code = 0;
  long httpStatus = 0;    // of the answer; 0 without one
  FailureCause failure;   // the stage it failed at and why; not set when nothing failed
  std::string errorText;  // libcurl's words, or ours in place of them
  STRING guidUsed;        // the identity that it was made with; empty when with none
  std::unique_ptr<ResponseParser> answer;  // never null; empty without an answer
};

}  // namespace korvane
