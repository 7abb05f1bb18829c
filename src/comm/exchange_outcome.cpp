#include "comm/exchange_outcome.h"

#include "agent/thread/locks.h"
#include "platform/clock.h"
#include "platform/platform.h"
#include "util/agent_run.h"

namespace korvane {
namespace {

struct Record {
  Win32Mutex lock;
  ExchangeOutcome last GUARDED_BY(lock);
};

Record& record() {
  return AgentRun::current().part<Record>(RunPart::exchangeOutcome);
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

}  // namespace korvane
