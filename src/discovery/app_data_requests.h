// The requests for application data: which one is being served, which one is next, and what wakes
// the threads that serve them. The requests themselves are settings, and so survive the agent.
//
// One object for each run of an agent. Threads: any; each waker has one thread that waits.
// Errors: ThreadException 8 when the system has no event to give.
//
//   requests.ask(settings, "r-12");                      // update thread, local channel
//   while (!requests.collector().wait(stop, ms)) { ... } // collecting thread
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "agent/thread/locks.h"
#include "agent/thread/stop_token.h"
#include "util/string.h"

namespace korvane {

class SettingsFile;
class UpdateSettings;

// What a thread of application data waits on between its works.
class Waker {
 public:
  // The next wait, or the one in progress, ends at once.
  void wake();
  // True once `stop` is set.
  [[nodiscard]] bool wait(StopToken& stop, uint32_t milliseconds);

 private:
  platform::Event& event();
  PrimitiveHolder<platform::Event> _event;
};

// Where the requests are kept.
struct AppDataSettings {
  UpdateSettings& values;
  SettingsFile& file;
};

class AppDataRequests {
 public:
  // Of an agent that has no request it is `none`.
  enum class Stage : uint8_t { none, waiting, collecting, sending };
  enum class Asked { begun, same, remembered, passedOver };
  // The checksums of an inventory that is delivered.
  struct Checksums {
    std::string applications, files;
  };

  static constexpr size_t kMaxIdentifierUnits = 1000;

  // A request; a longer identifier is passed over. It is written to both ini files when it returns begun or remembered. While another one is
  // served it is remembered as the next one, in the place of an earlier next one, or passed over.
  Asked ask(const AppDataSettings& settings, const STRING& identifier, bool remember = true);
  // The request to be served; false without one.
  [[nodiscard]] bool current(const AppDataSettings& settings, STRING& identifier);
  // The request is answered, or given up: the next one takes its place, and what is delivered is
  // noted with it. False when that could not be written yet.
  [[nodiscard]] bool end(const AppDataSettings& settings, const STRING& identifier,
                         const Checksums* delivered);

  // Of the thread that collects, and of the one that keeps the schedule.
  Waker& collector() { return _collector; }
  Waker& schedule() { return _schedule; }

  Stage stage(const AppDataSettings& settings) const;
  void setStage(Stage stage) { _stage = stage; }
  // Held by whoever works on the files of the delivery, for as long as a piece takes.
  Win32Mutex& files() RETURN_CAPABILITY(_files) { return _files; }

 private:
  Waker _collector, _schedule;
  std::atomic<Stage> _stage{Stage::none};
  Win32Mutex _files;
  // Between reading and changing the settings of a request; never while they are written.
  Win32Mutex _lock;
};

}  // namespace korvane
