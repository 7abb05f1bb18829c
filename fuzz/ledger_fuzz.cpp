// A ledger file with any content: it is taken over without fault, stays bounded, and what is entered
// into it is there at the next start. With the right last line, too, so that the lines are reached.
#include <cstdlib>
#include <string>

#include "ledger/loss_ledger.h"
#include "platform/fake/fake_platform.h"

namespace {

using namespace korvane;

constexpr char kPath[] = "/IPS/lossledger";

void demand(bool holds) {
  if (!holds) std::abort();
}

void openWith(platform::FakePlatform& fake, const std::string& content) {
  fake.files.put(kPath, content);
  LedgerView view;
  {
    LossLedger ledger(fake.files, fake.clock);
    ledger.open(kPath);
    StreamState state = ledger.resume("hidslog1rt", {});
    const Loss loss{"hidslog1rt", "/a.csv", LossCause::lineRejected, 3, true, {1, 1}, {2, 2}, 9};
    ledger.settle("hidslog1rt", std::span(&loss, 1), state);
    demand(ledger.resume("hidslog1rt", state).lost == state.lost);
    view = ledger.view();
    demand(ledger.record(Loss{.log = "/b", .counted = false}));
    view = ledger.view();
  }
  LossLedger again(fake.files, fake.clock);
  again.open(kPath);
  demand(again.view().totals == view.totals);
  demand(fake.files.content(kPath).size() >= LossLedger::kFileBytes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static platform::FakePlatform fake;
  static const platform::CurrentPlatform current(fake.platform());
  const std::string content(reinterpret_cast<const char*>(data), size);
  openWith(fake, content);
  openWith(fake, sealedLedger(content));
  return 0;
}
