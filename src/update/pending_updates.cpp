#include "update/pending_updates.h"

#include "eventlog/event_log.h"

namespace korvane {
namespace {

struct FlagName {
  const char* property;
  bool PendingUpdates::*flag;
};

constexpr FlagName kFlagNames[] = {
    {"update.configuration", &PendingUpdates::configuration},
    {"update.policy", &PendingUpdates::policy},
    {"update.software", &PendingUpdates::software},
    {"update.policy.ids", &PendingUpdates::idsPolicy},
    {"update.configuration.ids", &PendingUpdates::idsConfiguration},
    {"update.qel", &PendingUpdates::qel},
    {"update.ferrolyn.revocation", &PendingUpdates::ferrolynRevocation},
    {"update.ferrolyn.settings", &PendingUpdates::ferrolynSettings},
    {"update.ferrolyn.vexvt", &PendingUpdates::ferrolynVexVT},
    {"send.application.request", &PendingUpdates::applicationRequest},
};

constexpr char kPollingTag[] = "UpdateThread";

}  // namespace

void PendingUpdates::takePollingProperties(const PropertyList& properties) {
  for (const FlagName& name : kFlagNames)
    this->*name.flag = propertyIsTrue(properties, name.property);
  if (!applicationRequest) return;
  eventlog::trace(kPollingTag, "Received send.application.request");
  const STRING* identifier = findProperty(properties, "send.application.requestID");
  applicationRequest = identifier != nullptr;
  if (!identifier) return;
  applicationRequestId = *identifier;
  eventlog::trace(kPollingTag, "Received Request ID - %s ", applicationRequestId);
}

}  // namespace korvane
