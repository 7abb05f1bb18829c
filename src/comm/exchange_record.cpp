#include "comm/exchange_record.h"

#include "platform/clock.h"

namespace korvane {

ExchangeOutcome ExchangeRecord::last() {
  Synchronized hold(_lock);
  return _last;
}

void ExchangeRecord::noteAnswered(const std::string& server) {
  const int64_t now = _clock.wallMs();
  Synchronized hold(_lock);
  _last.ok = true;
  _last.code = 0;
  _last.text.clear();
  _last.server = server;
  _last.wallMs = _last.lastOkMs = now;
}

void ExchangeRecord::noteFailed(const ExchangeFailure& failure, bool answered) {
  const int64_t now = _clock.wallMs();
  Synchronized hold(_lock);
  _last.ok = false;
  _last.code = failure.code;
  _last.text = failure.text;
  _last.server = failure.server;
  _last.wallMs = now;
  if (answered) _last.lastOkMs = now;
  _last.lastFailure = failure;
  _last.lastFailure.wallMs = now;
}

}  // namespace korvane
