// The kinds of update, each with its bit and the three texts it goes by.
#pragma once

#include <array>

#include "comm/https_handler.h"

namespace korvane {

struct UpdateKind {
  int bit;
  const char* requestKey;  // the property that asks for it, and that an answer says "true" to
  const char* name;        // what getUpdateAsINT knows it as
  const char* shortName;
  const char* sending;  // traced when it is asked for; null for content
};

// In ascending order of the bits, which is the order on the wire. The two configuration kinds are
// asked for by other texts than they are named by.
inline constexpr std::array<UpdateKind, 9> kUpdateKinds{{
    {HttpsHandler::CONFIG_UPDATE, "update.configuration", "update.config", "config",
     "Sending Config Update Message"},
    {HttpsHandler::POLICY_UPDATE, "update.policy", "update.policy", "policy",
     "Sending Policy Update Message"},
    {HttpsHandler::SOFTWARE_UPDATE, "update.software", "update.software", "software",
     "Sending Software Update Message"},
    {HttpsHandler::POLICY_UPDATE_HIDS, "update.policy.ids", "update.policy.ids", "policy.ids",
     "Sending HIDS Policy Update Message"},
    {HttpsHandler::CONFIG_UPDATE_HIDS, "update.configuration.ids", "update.config.ids",
     "config.ids", "Sending HIDS Config Update Message"},
    {HttpsHandler::VEXQEL_UPDATE, "update.qel", "update.qel", "qel", nullptr},
    {HttpsHandler::FERROLYN_REVO_UPDATE, "update.ferrolyn.revocation", "update.ferrolyn.revocation",
     "ferrolyn.revocation", nullptr},
    {HttpsHandler::FERROLYN_SETTINGS_UPDATE, "update.ferrolyn.settings", "update.ferrolyn.settings",
     "ferrolyn.settings", nullptr},
    {HttpsHandler::FERROLYN_VT_UPDATE, "update.ferrolyn.vexvt", "update.ferrolyn.vexvt",
     "ferrolyn.vexvt", nullptr},
}};

// The four content kinds.
inline constexpr int kContentKinds =
    HttpsHandler::VEXQEL_UPDATE | HttpsHandler::FERROLYN_REVO_UPDATE |
    HttpsHandler::FERROLYN_SETTINGS_UPDATE | HttpsHandler::FERROLYN_VT_UPDATE;

// The kinds whose answer carries a binary section.
inline constexpr int kBinaryKinds = HttpsHandler::POLICY_UPDATE | HttpsHandler::SOFTWARE_UPDATE |
                                    HttpsHandler::POLICY_UPDATE_HIDS | kContentKinds;

}  // namespace korvane
