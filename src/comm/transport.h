// The wire exchange: one HTTPS POST and its answer. Everything the agent says to a server passes
// here; libcurl stands behind it in production (curl_transport.h), a scripted one in tests.
//
// Lifetime: request, sink and result belong to the caller and outlive perform(). Threads: one
// perform() at a time (its caller serialises); what ends it early from another thread is the
// stop token. Errors: perform() returns 0 when an answer was received, whatever its status; a
// positive libcurl code (CURLcode, curl.h) when the transfer failed; -1 when it could not be set
// up, with a text in the result.
//
//   TransportResult result;
//   int code = transport.perform({.url = "https://127.0.0.1:8443/agent/log", .body = body.bytes()},
//   sink, result);
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "comm/tls_identity.h"
#include "comm/transfer_trail.h"

namespace korvane {

struct TransportRequest {
  std::string url;
  std::vector<std::pair<std::string, std::string>>
      headers;            // in the order sent; values may be empty
  std::string_view body;  // not copied
  std::string caFile;
  TlsIdentity identity{};     // malformed texts in it let nothing be sent
  bool plainAllowed = false;  // the URL may be one of http; otherwise https alone is spoken
  long sslVersion = 6;        // CURL_SSLVERSION_..., the lowest that is accepted
  uint32_t connectTimeoutSeconds = 10;
  uint32_t totalTimeoutMs = 300'000;
  bool verbose = false;  // libcurl's own trace on the console
};

struct TransportResult {
  long httpStatus = 0;    // of the last answer; 0 when there was none
  std::string errorText;  // of the failure; empty when there is none
  // The transfer failed because the answer broke off or was none: nothing of it may be used.
  bool answerBroken = false;
  TransferTrail trail;
};

// Receives the answer piece by piece.
class TransportSink {
 public:
  virtual ~TransportSink() = default;
  // One header line, the status line and the empty one included, with its line end.
  virtual void onHeader(std::string_view line) = 0;
  // A piece of the body, of any size.
  virtual void onBody(std::string_view piece) = 0;
  // True when nothing more is wanted: the transfer is ended with code 42.
  virtual bool refuses() const = 0;
};

class Transport {
 public:
  virtual ~Transport() = default;
  // Makes it ready; false when that fails. open() on an open one does nothing.
  [[nodiscard]] virtual bool open() = 0;
  // Ends its connections. A closed one can be opened again.
  virtual void close() = 0;
  virtual bool isOpen() const = 0;
  [[nodiscard]] virtual int perform(const TransportRequest& request, TransportSink& sink,
                                    TransportResult& result) = 0;
};

// The codes that the agent itself gives a meaning to (CURLcode of the same names).
inline constexpr int kCurlAbortedByCallback = 42;
inline constexpr int kCurlReceiveError = 56;

}  // namespace korvane
