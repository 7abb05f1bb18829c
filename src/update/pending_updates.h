// The updates that the server has for the agent: set from the polling properties of a status
// answer, or by a notification.
//
// A value type, used by the update thread alone.
#pragma once

#include <cstdint>

#include "util/property_list.h"

namespace korvane {

struct PendingUpdates {
  bool configuration = false;
  bool policy = false;
  bool software = false;
  bool idsPolicy = false;
  bool idsConfiguration = false;
  bool qel = false;
  bool ferrolynRevocation = false;
  bool ferrolynSettings = false;
  bool ferrolynVexVT = false;
  bool applicationRequest = false;
  STRING applicationRequestId;

  // Whether one of these update kinds waits on the server.
  bool any(int kinds) const;
  // Those of them that wait; their flags are cleared.
  [[nodiscard]] int take(int kinds);

  // Sets every flag from the properties, a missing one to false. A request for application data
  // without an identifier is none.
  void applyPollingProperties(const PropertyList& properties);
  // Sets a flag for each bit of a notification, the update kinds 1 to 16; the others stay
  // as they are. Bit 32 says nothing. False, and nothing set, for a byte that is none: one
  // of the two top bits is set.
  [[nodiscard]] bool acceptNotification(uint8_t byte);
};

}  // namespace korvane
