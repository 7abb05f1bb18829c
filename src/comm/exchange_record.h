// How the last exchange over a connection ended, for status displays and for what depends on
// whether the server can be reached.
//
// HttpsHandler notes every exchange whose result it checks; a connection test and the check of the
// primary server before a fail-back do not count. Any thread may call anything at any time; what is
// read is one moment's whole record.
//
//   const ExchangeOutcome last = record.last();
//   if (last.wallMs != 0 && !last.ok) show(last.code, last.text);
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "agent/thread/locks.h"
#include "platform/fwd.h"

namespace korvane {

// Times are milliseconds since 1970 in UTC, 0 for never.
struct ExchangeFailure {
  // libcurl's code, an HTTP status above 200, -1 when nothing could be sent, or the
  // server's error code.
  int code = 0;
  std::string text;  // "TLS handshake: the server ..."
  int64_t wallMs = 0;
  std::string server;
};

struct ExchangeOutcome {
  bool ok = false;
  int code = 0;        // 0 when ok, else the failure's
  std::string text;    // empty when ok, else the failure's
  int64_t wallMs = 0;  // when it ended
  std::string server;
  int64_t lastOkMs = 0;         // when the server last answered in its protocol, an error included
  ExchangeFailure lastFailure;  // the last one there was; a later success leaves it
};

class ExchangeRecord {
 public:
  explicit ExchangeRecord(platform::Clock& clock) : _clock(clock) {}

  ExchangeOutcome last();
  void noteAnswered(const std::string& server);
  // `answered`: the server did answer in its protocol, with this error code.
  void noteFailed(const ExchangeFailure& failure, bool answered);

  // libcurl's code of the last transfer, 0 when it was answered; -1 and HTTP errors leave it.
  int transferError() const { return _transferError; }
  void setTransferError(int code) { _transferError = code; }

 private:
  platform::Clock& _clock;
  Win32Mutex _lock;
  ExchangeOutcome _last GUARDED_BY(_lock);
  std::atomic<int> _transferError{0};
};

}  // namespace korvane
