// Faults that the server makes on request, for tests of the agent.
//
// A rule names a path word ("log", ..., "*" for every one, "connect" for what happens before a
// request), a kind and how often it strikes. At most one rule strikes a request, the oldest that
// matches, and beside it every "delay" rule that matches. Thread-safe; rules can come and go at any
// time.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/server/mutex.h"
#include "tools/server/tls_context.h"

namespace korvane::server {

enum class FaultKind {
  delay,           // pause of delayMs before the answer (word "connect": before the handshake)
  error,           // a Korvane-Error of `code` with `text`, as UTF-16LE when `wide`
  http,            // HTTP status `code`
  dropBeforeRead,  // connection reset before the body is read
  dropAfterRead,   // ... after the body is read and handled, before an answer
  dropInAnswer,    // ... after `bytes` bytes of the answer's body
  cut,             // body ends after `bytes` bytes, HTTP being in order
  slow,            // the answer goes out `bytes` bytes a second
  dataLength,      // every Data-Length becomes `text`
  oversized,       // a properties section of `bytes` bytes of comment lines
  endlessHeaders,  // response headers until the peer goes away
  garbage,         // bytes that are not HTTP instead of an answer
  garbageBody,     // a body without any framing
  raw,             // `text`, sent as the whole answer, then the connection closes
  noGuid,          // registration answered without the identity
  drop,            // word "connect": reset instead of a handshake
  certificate      // word "connect": the handshake shows another certificate
};

std::optional<FaultKind> faultKindNamed(std::string_view name);
std::string_view nameOf(FaultKind kind);

struct Fault {
  int64_t id = 0;
  std::string word = "*";
  FaultKind kind = FaultKind::delay;
  std::string guid;              // only requests of this agent; empty: any
  std::string listener;          // only connections to this address; empty: any
  int64_t skip = 0;              // matching requests to let pass first
  std::optional<int64_t> count;  // how often it still strikes; none: forever
  int64_t hits = 0;
  int code = 0;
  std::string text;
  bool wide = false;
  std::optional<int64_t> bytes;
  int64_t delayMs = 0;
  std::optional<bool> store;  // whether what the request carried is stored nevertheless
  std::optional<TlsContext> certificate;
};

class Misbehaviour {
 public:
  int64_t add(Fault fault);
  // 0 removes all.
  void remove(int64_t id);
  std::vector<Fault> list() const;

  // Counts and hands out what strikes a request (or a connection, word "connect"): delays first.
  std::vector<Fault> strike(std::string_view word, std::string_view guid,
                            std::string_view listener);

 private:
  mutable Mutex _mutex;
  int64_t _lastId GUARDED_BY(_mutex) = 0;
  std::vector<Fault> _faults GUARDED_BY(_mutex);
};

}  // namespace korvane::server
