#include "update/content_kinds.h"

#include <array>

#include "comm/https_handler.h"
#include "config/install_root.h"
#include "platform/paths.h"

namespace korvane {
namespace {

constexpr std::array<ContentKind, 4> kKinds{{
    {HttpsHandler::VEXQEL_UPDATE, "update.qel", "VWKTR QEL Signatures", "qel",
     &UpdateSettings::getQelVtFlpkgPath, &UpdateSettings::getUpdateQELNow,
     &UpdateSettings::setUpdateQELNow, &UpdateSettings::getQelFL, &UpdateSettings::setQelFL},
    {HttpsHandler::FERROLYN_REVO_UPDATE, "update.ferrolyn.revocation", "VWKTR Ferrolyn Revocation",
     "ferrolyn-revocation", &UpdateSettings::getFerrolynRevoPath,
     &UpdateSettings::getUpdateFRevoNow, &UpdateSettings::setUpdateFRevoNow,
     &UpdateSettings::getFerrolynRevoFL, &UpdateSettings::setFerrolynRevoFL},
    {HttpsHandler::FERROLYN_SETTINGS_UPDATE, "update.ferrolyn.settings", "VWKTR Ferrolyn Settings",
     "ferrolyn-settings", &UpdateSettings::getFerrolynSettingsPath,
     &UpdateSettings::getUpdateFSettingsNow, &UpdateSettings::setUpdateFSettingsNow,
     &UpdateSettings::getFerrolynSettingsFL, &UpdateSettings::setFerrolynSettingsFL},
    {HttpsHandler::FERROLYN_VT_UPDATE, "update.ferrolyn.vexvt", "VWKTR Ferrolyn VexVT",
     "ferrolyn-vexvt", &UpdateSettings::getFerrolynVtPath, &UpdateSettings::getUpdateFVTNow,
     &UpdateSettings::setUpdateFVTNow, &UpdateSettings::getFerrolynVtFL,
     &UpdateSettings::setFerrolynVtFL},
}};

}  // namespace

std::string ContentKind::directory(const platform::Files& files,
                                   const UpdateSettings& settings) const {
  const STRING configured = (settings.*configuredDirectory)();
  if (!configured.empty()) return placeOfSetting(configured.toUtf8());
  return platform::joinPath(files, {installDirectory(), "content", shortName});
}

std::string ContentKind::handOverDirectory(const platform::Files& files) {
  return platform::joinPath(files, {idsDirectory(), "content"});
}

std::span<const ContentKind> contentKinds() {
  return kKinds;
}

const ContentKind* contentKindOf(int bit) {
  for (const ContentKind& kind : kKinds)
    if (kind.bit == bit) return &kind;
  return nullptr;
}

}  // namespace korvane
