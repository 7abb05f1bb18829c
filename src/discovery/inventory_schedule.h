// The agent's own schedule of inventories: a request when the last inventory is
// appdata.schedule.interval seconds old.
//
// The time of the last one is a setting, so that a restart does not begin the interval anew; a wall
// clock that is set back makes the next one due at once. Refers to the settings, requests and clock
// that it is given. Used by one thread.
#pragma once

#include <cstdint>

#include "discovery/app_data_requests.h"
#include "platform/fwd.h"

namespace korvane {

class InventorySchedule {
 public:
  static constexpr uint32_t kLeastSeconds = 60;
  // The wall clock may have been set meanwhile.
  static constexpr uint32_t kLongestWaitMs = 3'600'000;

  InventorySchedule(const AppDataSettings& settings, AppDataRequests& requests,
                    platform::Clock& clock)
      : _settings(settings), _requests(requests), _clock(clock) {}

  void askWhenDue();
  // One begins, whoever asked for it.
  void noteInventory();
  // Until the next look; infinite without a schedule.
  uint32_t remainingMs() const;

 private:
  int64_t remaining() const;

  const AppDataSettings _settings;
  AppDataRequests& _requests;
  platform::Clock& _clock;
};

// "PREFIX-20261122T101530Z": the identifier of a request that the agent makes itself.
STRING ownRequest(const char* prefix, int64_t wallMs);

}  // namespace korvane
