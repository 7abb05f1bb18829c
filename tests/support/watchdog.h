// The bound of every wait in a test. A test that has not ended within KORVANE_TEST_LIMIT
// seconds, which CTest sets well below its own limit, ends its program with a message that
// names the test and what it waits for. Without the variable nothing is watched: a
// debugger, and a soak, take their time.
//
//   const Wait wait("the client to be held");      // for a wait that has no bound of its own
//   event->wait(platform::kInfinite);
//   ASSERT_TRUE(waitFor("a request", [&] { return fake.devices.openRequests() > 0; }));
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

namespace korvane::tests {

// Names what its thread waits for, for its scope. Any thread.
class Wait {
 public:
  explicit Wait(std::string what);
  ~Wait();
  Wait(const Wait&) = delete;
  Wait& operator=(const Wait&) = delete;

 private:
  const std::string _what;
};

// Looks again and again until `condition` holds; after 30 seconds a failure that says what
// was waited for.
template <class Condition>
[[nodiscard]] bool waitFor(const char* what, Condition condition) {
  const Wait wait(what);
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) {
      ADD_FAILURE() << "waited 30 s for " << what;
      return false;
    }
    std::this_thread::yield();
  }
  return true;
}

}  // namespace korvane::tests
