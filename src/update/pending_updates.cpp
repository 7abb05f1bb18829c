#include "update/pending_updates.h"

#include "comm/https_handler.h"
#include "eventlog/event_log.h"

namespace korvane {
namespace {

struct Flag {
  int bit;  // the update kind; 0 for what is none
  const char* property;
  bool PendingUpdates::*flag;
};

constexpr Flag kFlags[] = {
    {HttpsHandler::CONFIG_UPDATE, "update.configuration", &PendingUpdates::configuration},
    {HttpsHandler::POLICY_UPDATE, "update.policy", &PendingUpdates::policy},
    {HttpsHandler::SOFTWARE_UPDATE, "update.software", &PendingUpdates::software},
    {HttpsHandler::POLICY_UPDATE_HIDS, "update.policy.ids", &PendingUpdates::idsPolicy},
    {HttpsHandler::CONFIG_UPDATE_HIDS, "update.configuration.ids",
     &PendingUpdates::idsConfiguration},
    {HttpsHandler::VEXQEL_UPDATE, "update.qel", &PendingUpdates::qel},
    {HttpsHandler::FERROLYN_REVO_UPDATE, "update.ferrolyn.revocation",
     &PendingUpdates::ferrolynRevocation},
    {HttpsHandler::FERROLYN_SETTINGS_UPDATE, "update.ferrolyn.settings",
     &PendingUpdates::ferrolynSettings},
    {HttpsHandler::FERROLYN_VT_UPDATE, "update.ferrolyn.vexvt", &PendingUpdates::ferrolynVexVT},
    {0, "send.application.request", &PendingUpdates::applicationRequest},
};

constexpr char kPollingTag[] = "UpdateThread";
constexpr char kNotificationTag[] = "tcpNotification";
constexpr uint8_t kInvalidBits = 0xC0;
constexpr uint8_t kNotifiedBits = 0x1F;

}  // namespace

bool PendingUpdates::any(int kinds) const {
  for (const Flag& row : kFlags)
    if ((kinds & row.bit) && this->*row.flag) return true;
  return false;
}

int PendingUpdates::take(int kinds) {
  int taken = 0;
  for (const Flag& row : kFlags) {
    if (!(kinds & row.bit) || !(this->*row.flag)) continue;
    taken |= row.bit;
    this->*row.flag = false;
  }
  return taken;
}

void PendingUpdates::applyPollingProperties(const PropertyList& properties) {
  for (const Flag& row : kFlags) this->*row.flag = propertyIsTrue(properties, row.property);
  if (!applicationRequest) return;
  eventlog::trace(kPollingTag, "Received send.application.request");
  const STRING* identifier = findProperty(properties, "send.application.requestID");
  applicationRequest = identifier && !identifier->empty();
  if (!applicationRequest) return;
  applicationRequestId = *identifier;
  eventlog::trace(kPollingTag, "Received Request ID - %s ", applicationRequestId);
}

bool PendingUpdates::acceptNotification(uint8_t byte) {
  if (byte & kInvalidBits) {
    eventlog::trace(kNotificationTag, "Got invalid notification message, byte is 0x%x", byte);
    return false;
  }
  for (const Flag& row : kFlags)
    if (byte & kNotifiedBits & row.bit) this->*row.flag = true;
  eventlog::trace(kNotificationTag, "Notification type received : %d", byte);
  return true;
}

}  // namespace korvane
