// The main of every test program: says a word at once, and watches each test (watchdog.h).
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <list>
#include <mutex>

#include "tests/support/watchdog.h"

namespace korvane::tests {
namespace {

class Watchdog : public testing::EmptyTestEventListener {
 public:
  void enter(const std::string* what) {
    const std::lock_guard hold(_mutex);
    _waits.push_back(what);
  }
  void leave(const std::string* what) {
    const std::lock_guard hold(_mutex);
    _waits.remove(what);
  }

  void begin(int limitSeconds) {
    _limit = std::chrono::seconds(limitSeconds);
    _thread = std::thread([this] { watch(); });
  }
  void end() {
    {
      const std::lock_guard hold(_mutex);
      _over = true;
    }
    _changed.notify_all();
    if (_thread.joinable()) _thread.join();
  }

  void OnTestStart(const testing::TestInfo& test) override {
    const std::lock_guard hold(_mutex);
    _test = std::string(test.test_suite_name()) + "." + test.name();
    _deadline = std::chrono::steady_clock::now() + _limit;
    _changed.notify_all();
  }
  void OnTestEnd(const testing::TestInfo&) override {
    const std::lock_guard hold(_mutex);
    _test.clear();
  }

 private:
  void watch() {
    std::unique_lock hold(_mutex);
    while (!_over) {
      if (_test.empty())
        _changed.wait(hold);
      else if (_changed.wait_until(hold, _deadline) == std::cv_status::timeout && !_test.empty() &&
               std::chrono::steady_clock::now() >= _deadline)
        bite();
    }
  }
  [[noreturn]] void bite() {
    std::string waits;
    for (const std::string* what : _waits) waits += (waits.empty() ? "" : "; ") + *what;
    if (waits.empty()) waits = "nothing that has a name";
    std::printf("watchdog: %s has not ended within %lld s. It waits for: %s\n", _test.c_str(),
                static_cast<long long>(_limit.count()), waits.c_str());
    std::fflush(nullptr);
    std::_Exit(1);
  }

  std::mutex _mutex;
  std::condition_variable _changed;
  std::thread _thread;
  std::chrono::seconds _limit{0};
  std::chrono::steady_clock::time_point _deadline;
  std::string _test;  // empty: none runs
  std::list<const std::string*> _waits;
  bool _over = false;
};

// Never destroyed: GoogleTest has it for good, and a thread left behind may still wait.
Watchdog& watchdog() {
  static Watchdog& one = *new Watchdog;
  return one;
}

}  // namespace

Wait::Wait(std::string what) : _what(std::move(what)) {
  watchdog().enter(&_what);
}

Wait::~Wait() {
  watchdog().leave(&_what);
}

}  // namespace korvane::tests

int main(int argc, char** argv) {
  // By any word of a program script/wine-run knows that it was started.
  std::puts("Running main() from test_main.cpp");
  std::fflush(stdout);
  testing::InitGoogleMock(&argc, argv);
  auto& watchdog = korvane::tests::watchdog();
  testing::UnitTest::GetInstance()->listeners().Append(&watchdog);
  const char* const limit = std::getenv("KORVANE_TEST_LIMIT");
  if (limit && std::atoi(limit) > 0) watchdog.begin(std::atoi(limit));
  const int result = RUN_ALL_TESTS();
  watchdog.end();
  testing::UnitTest::GetInstance()->listeners().Release(&watchdog);
  return result;
}
