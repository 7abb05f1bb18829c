// What the watchdog is for, made on purpose: each case hangs, and CTest expects the
// watchdog's words.
#include "tests/support/watchdog.h"

#include <future>

namespace korvane::tests {
namespace {

TEST(Hanging, AtAWaitWithAName) {
  std::promise<void> never;
  { const Wait over("something that came"); }
  const Wait wait("a word that never comes");
  never.get_future().wait();
}

TEST(Hanging, InAnotherThreadsEnd) {
  std::promise<void> never;
  std::thread other([&] { never.get_future().wait(); });
  other.join();
}

TEST(Hanging, AtNothing) {
  EXPECT_TRUE(waitFor("what is there", [] { return true; }));
}

}  // namespace
}  // namespace korvane::tests
