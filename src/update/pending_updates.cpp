#include "update/pending_updates.h"

#include "comm/https_handler.h"
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

struct FlagBit {
  int bit;
  bool PendingUpdates::*flag;
};

constexpr FlagBit kFlagBits[] = {
    {HttpsHandler::CONFIG_UPDATE, &PendingUpdates::configuration},
    {HttpsHandler::POLICY_UPDATE, &PendingUpdates::policy},
    {HttpsHandler::SOFTWARE_UPDATE, &PendingUpdates::software},
    {HttpsHandler::POLICY_UPDATE_HIDS, &PendingUpdates::idsPolicy},
    {HttpsHandler::CONFIG_UPDATE_HIDS, &PendingUpdates::idsConfiguration},
    {HttpsHandler::VEXQEL_UPDATE, &PendingUpdates::qel},
    {HttpsHandler::FERROLYN_REVO_UPDATE, &PendingUpdates::ferrolynRevocation},
    {HttpsHandler::FERROLYN_SETTINGS_UPDATE, &PendingUpdates::ferrolynSettings},
    {HttpsHandler::FERROLYN_VT_UPDATE, &PendingUpdates::ferrolynVexVT},
};

constexpr char kPollingTag[] = "UpdateThread";
constexpr char kNotificationTag[] = "tcpNotification";
constexpr uint8_t kInvalidBits = 0xC0;
constexpr uint8_t kKindBits = 0x1F;

}  // namespace

bool PendingUpdates::any(int kinds) const {
  for (const FlagBit& row : kFlagBits)
    if ((kinds & row.bit) && this->*row.flag) return true;
  return false;
}

int PendingUpdates::take(int kinds) {
  int taken = 0;
  for (const FlagBit& row : kFlagBits) {
    if (!(kinds & row.bit) || !(this->*row.flag)) continue;
    taken |= row.bit;
    this->*row.flag = false;
  }
  return taken;
}

void PendingUpdates::takePollingProperties(const PropertyList& properties) {
  for (const FlagName& name : kFlagNames)
    this->*name.flag = propertyIsTrue(properties, name.property);
  if (!applicationRequest) return;
  eventlog::trace(kPollingTag, "Received send.application.request");
  const STRING* identifier = findProperty(properties, "send.application.requestID");
  applicationRequest = identifier && !identifier->empty();
  if (!applicationRequest) return;
  applicationRequestId = *identifier;
  eventlog::trace(kPollingTag, "Received Request ID - %s ", applicationRequestId);
}

bool PendingUpdates::takeNotification(uint8_t byte) {
  if (byte & kInvalidBits) {
    eventlog::trace(kNotificationTag, "Got invalid notification message, byte is 0x%x", byte);
    return false;
  }
  for (const FlagBit& row : kFlagBits)
    if (byte & kKindBits & row.bit) this->*row.flag = true;
  eventlog::trace(kNotificationTag, "Notification type received : %d", byte);
  return true;
}

}  // namespace korvane
