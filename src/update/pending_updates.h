// What the server has for the agent: set from the polling properties of a status answer.
//
// A value type, used by the update thread alone.
#pragma once

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

  // Sets every flag from the properties, a missing one to false. A request for application data without
  // an identifier is none.
  void takePollingProperties(const PropertyList& properties);
};

}  // namespace korvane
