// The component update thread, which every service type starts: once a second it checks whether a
// content package is ready (its update-now flag is set) and hands it over to the IDS component
// (content_hand_over.h).
//
// Without an IDS component a package waits for one, with its flag set. A package that cannot be
// used is reported in the agent's own log and forgotten. When only the disk refuses, the flag stays
// and another attempt follows a minute later; the log says so once.
//
// Start, stop and destruction as for every Thread; a stop ends an unpacking that is going on, and
// the next start does it again. cycle() is for tests, instead of start().
#pragma once

#include <array>
#include <cstdint>

#include "agent/thread/thread.h"
#include "config/hids_interface.h"
#include "update/content_hand_over.h"

namespace korvane {

class ComponentUpdateThread : public Thread {
 public:
  static constexpr int64_t kPauseAfterFailureMs = 60'000;

  // All of it outlives the thread.
  struct Parts {
    ContentParts content;
    platform::Clock& clock;
    // The IDS component of the moment, or null.
    HidsInterface* (*ids)();
  };

  explicit ComponentUpdateThread(const Parts& parts);

  void cycle();

 protected:
  void run() override;

 private:
  struct Attempts {
    bool failing = false;
    int64_t nextMs = 0;  // monotonic
  };

  void handOverDownloaded(const ContentKind& kind, Attempts& attempts);

  const Parts _parts;
  std::array<Attempts, 4> _attempts;
};

}  // namespace korvane
