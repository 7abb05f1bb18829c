#include "comm/exchange_outcome.h"

#include "agent/thread/locks.h"
#include "platform/clock.h"
#include "platform/platform.h"

namespace korvane {
namespace {

struct Record {
  Win32Mutex lock;
  ExchangeOutcome last GUARDED_BY(lock);
};

// Never destroyed: a thread that outlived the agent may still be in an exchange.
Record& record() {
  static Record& one = *new Record;
  return one;
}

}  // namespace

ExchangeOutcome lastExchange() {
  Synchronized hold(record().lock);
  return record().last;
}

void noteExchangeAnswered(const std::string& server) {
  const int64_t now = platform::current().clock.wallMs();
  Synchronized hold(record().lock);
  ExchangeOutcome& last = record().last;
  last.ok = true;
  last.code = 0;
  last.text.clear();
  last.server = server;
  last.wallMs = last.lastOkMs = now;
}

void noteExchangeFailed(const ExchangeFailure& failure, bool answered) {
  const int64_t now = platform::current().clock.wallMs();
  Synchronized hold(record().lock);
  ExchangeOutcome& last = record().last;
  last.ok = false;
  last.code = failure.code;
  last.text = failure.text;
  last.server = failure.server;
  last.wallMs = now;
  if (answered) last.lastOkMs = now;
  last.lastFailure = failure;
  last.lastFailure.wallMs = now;
}

void resetExchangeOutcome() {
  Synchronized hold(record().lock);
  record().last = ExchangeOutcome();
}

}  // namespace korvane
