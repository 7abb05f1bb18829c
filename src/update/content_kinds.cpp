#include "update/content_kinds.h"

#include <array>

#include "comm/https_handler.h"
#include "config/install_root.h"
#include "platform/paths.h"
#include "platform/platform.h"

namespace korvane {
namespace {

constexpr std::array<ContentKind, 4> kKinds{{
    {HttpsHandler::VEXQEL_UPDATE, "update.qel", "VWKTR QEL Signatures", "qel",
     &AgentConfig::getQelVtFlpkgPath, &AgentConfig::getUpdateQELNow, &AgentConfig::setUpdateQELNow,
     &AgentConfig::getQelFL, &AgentConfig::setQelFL},
    {HttpsHandler::FERROLYN_REVO_UPDATE, "update.ferrolyn.revocation", "VWKTR Ferrolyn Revocation",
     "ferrolyn-revocation", &AgentConfig::getFerrolynRevoPath, &AgentConfig::getUpdateFRevoNow,
     &AgentConfig::setUpdateFRevoNow, &AgentConfig::getFerrolynRevoFL,
     &AgentConfig::setFerrolynRevoFL},
    {HttpsHandler::FERROLYN_SETTINGS_UPDATE, "update.ferrolyn.settings", "VWKTR Ferrolyn Settings",
     "ferrolyn-settings", &AgentConfig::getFerrolynSettingsPath,
     &AgentConfig::getUpdateFSettingsNow, &AgentConfig::setUpdateFSettingsNow,
     &AgentConfig::getFerrolynSettingsFL, &AgentConfig::setFerrolynSettingsFL},
    {HttpsHandler::FERROLYN_VT_UPDATE, "update.ferrolyn.vexvt", "VWKTR Ferrolyn VexVT",
     "ferrolyn-vexvt", &AgentConfig::getFerrolynVtPath, &AgentConfig::getUpdateFVTNow,
     &AgentConfig::setUpdateFVTNow, &AgentConfig::getFerrolynVtFL, &AgentConfig::setFerrolynVtFL},
}};

}  // namespace

std::string ContentKind::directory() const {
  const STRING configured = (AgentConfig::getInstance()->*configuredDirectory)();
  if (!configured.empty()) return configured.toUtf8();
  return platform::joinPath(platform::current().files, {installDirectory(), "content", shortName});
}

std::string ContentKind::handOverDirectory() {
  return platform::joinPath(platform::current().files, {idsDirectory(), "content"});
}

std::span<const ContentKind> contentKinds() {
  return kKinds;
}

const ContentKind* contentKindOf(int bit) {
  for (const ContentKind& kind : kKinds)
    if (kind.bit == bit) return &kind;
  return nullptr;
}

Win32Mutex& contentLock() {
  return AgentRun::current().part<Win32Mutex>(RunPart::content);
}

}  // namespace korvane
