#include "config/settings_table.h"

#include <array>
#include <string>
#include <string_view>
#include <unordered_map>

namespace korvane {
namespace {

using enum ValueType;
using enum Report;

constexpr auto kTable = std::to_array<SettingRow>({
    {Key::agentInitialGroup, "Agent", "agent.initial.group", text, "", attribute},
    {Key::agentConfigInitialGroup, "Agent", "agent.config.initial.group", text, "", attribute},
    {Key::configInitialGroup, "Agent", "config.initial.group", text, "", attribute},
    {Key::agentCharset, "Agent", "agent.charset", text, "", attribute},
    {Key::agentName, "Agent", "agent.name", text, "", attribute},
    {Key::agentOpstateInterval, "Agent", "agent.opstate.interval", text, "", attribute},
    {Key::agentId, "Agent", "agent.id", text, "", attribute},
    {Key::agentUrl, "Agent", "agent.http.url", text, "", configuration},
    {Key::serverList, "Agent", "server.list", text, "", configuration},
    {Key::agentUpdate, "Agent", "agent.update", path, "", none},
    {Key::agentFeatures, "Agent", "agent.features", text, "", attribute},
    {Key::httpPlainEnabled, "Agent", "agent.http.plain.enabled", boolean, "false", none},
    {Key::fipsEnabled, "FIPS", "fips.enabled", boolean, "false", configuration},
    {Key::autoRetransEnabled, "AutoRetrans", "autoretrans.enabled", boolean, "true", configuration},
    {Key::autoRetransInterval, "AutoRetrans", "autoretrans.interval", interval, "600",
     configuration},
    {Key::autoRetransNow, "AutoRetrans", "autoretrans.now", boolean, "false", none},
    {Key::agentLogFile, "AgentLog", "agentlog.logfile", path, "", none},
    {Key::agentLogTrace, "AgentLog", "agentlog.log.trace.messages", boolean, "false",
     configuration},
    {Key::agentLogPointer, "AgentLog", "agentlog.file.pointer", path, "", none},
    {Key::agentLogRolloverPending, "AgentLog", "agentlog.rollover.pending", boolean, "false", none},
    {Key::plusPolicyFile, "Driver", "plus.policy.file", path, "", none},
    {Key::policyName, "Driver", "policy.name", text, "", none},
    {Key::policyId, "Driver", "policy.id", text, "", none},
    {Key::policyPath, "Driver", "policy.path", text, "", none},
    {Key::useBuiltInPolicy, "Driver", "use.builtin.policy", boolean, "false", none},
    {Key::ipsEnabled, "Driver", "ips.enabled", boolean, "true", configuration},
    {Key::ipsRebootRequired, "Driver", "ips.reboot.required", boolean, "false", none},
    {Key::rebootRequested, "Driver", "configtool.reboot.requested", boolean, "false", none},
    {Key::rebootSource, "Driver", "source.reboot.requested", text, "", none},
    {Key::fimRebootRequired, "Driver", "fim.reboot.required", boolean, "false", none},
    {Key::fimRebootRequested, "Driver", "configtool.fim.reboot.requested", boolean, "false", none},
    {Key::fimEnabled, "Driver", "fim.enabled", boolean, "false", configuration},
    {Key::driverLogFile, "DriverLog", "driverlog.logfile", path, "", none},
    {Key::driverProfileLogFile, "DriverLog", "driverlog.profile.logfile", path, "", none},
    {Key::driverLogPointer, "DriverLog", "driverlog.file.pointer", path, "", none},
    {Key::driverLogRolloverPending, "DriverLog", "driverlog.rollover.pending", boolean, "false",
     none},
    {Key::idsPolicyInitialGroup, "IDS", "ids.policy.initial.group", text, "", attribute},
    {Key::idsConfigInitialGroup, "IDS", "ids.config.initial.group", text, "", attribute},
    {Key::idsPlusPolicyFile, "IDS", "ids.plus.policy.file", path, "", none},
    {Key::idsSignalTimeout, "IDS", "ids.signal.timeout", integer, "10", configuration},
    {Key::sslTrustStore, "System", "ssl.trustStore", path, "", none},
    {Key::sslServerNames, "System", "ssl.server.names", text, "", none},
    {Key::sslServerPins, "System", "ssl.server.pins", text, "", none},
    {Key::sslCrlFile, "System", "ssl.crl.file", path, "", none},
    {Key::sslClientCertificate, "System", "ssl.client.certificate", path, "", none},
    {Key::sslClientKey, "System", "ssl.client.key", path, "", none},
    {Key::sslMinimumVersion, "System", "ssl.minimum.version", text, "", none},
    {Key::settingsLocalOnly, "System", "settings.local.only", text, "", none},
    {Key::signingKeys, "System", "update.signing.keys", path, "", none},
    {Key::signingMinimum, "System", "update.signing.minimum", interval, "1", none},
    {Key::logDiskUpperLimit, "Log", "log.disk.upperlimit", integer, "90", configuration},
    {Key::logDiskLowerLimit, "Log", "log.disk.lowerlimit", integer, "80", configuration},
    {Key::bulkIdleInterval, "Log", "log.bulktransfer.idleinterval", integer, "300", configuration},
    {Key::bulkBacklogInterval, "Log", "log.bulktransfer.backloginterval", integer, "60",
     configuration},
    {Key::bulkOpenFileLimit, "Log", "log.bulktransfer.openfilelimit", integer, "16", configuration},
    {Key::logConsolidate, "Log", "log.consolidate", boolean, "true", configuration},
    {Key::logConsolidateValue, "Log", "log.consolidate.value", interval, "5", configuration},
    {Key::logDeleteEnabled, "Log", "log.delete.enabled", boolean, "true", configuration},
    {Key::bulkEnabled, "Log", "log.bulktransfer.enabled", boolean, "false", configuration},
    {Key::logCollectSha256, "Log", "log.collectsha256hash", boolean, "false", configuration},
    {Key::logReaderLimit, "Log", "log.reader.limit", integer, "300", configuration},
    {Key::logWriterLimit, "Log", "log.writer.limit", integer, "1", configuration},
    {Key::logPriority, "Log", "log.priority", text, "norm", configuration},
    {Key::logRolloverCause, "Log", "log.rollover.cause", enumeration, "0", configuration},
    {Key::logRolloverValue, "Log", "log.rollover.value", text, "50", configuration},
    {Key::externalLog, "ExternalLogs", "external.log", paths, "", configuration},
    {Key::policyErrorCode, "PolicyState", "policy.state.error.code", integer, "0", none},
    {Key::policyErrorString, "PolicyState", "policy.state.error.string", text, "No Error", none},
    {Key::ipsImportFileMaxLines, "Policy", "ips.importfile.maxlines", integer, "10000",
     configuration},
    {Key::overrideTimeout, "PolicyOverride", "override.timeout", integer, "90", configuration},
    {Key::appDataConfigFile, "ApplicationData", "appdata.config.file", path, "", none},
    {Key::appDataConfigV2File, "ApplicationData", "appdata.configV2.file", path, "", none},
    {Key::appDataRequested, "ApplicationData", "appdata.requested", boolean, "false", none},
    {Key::appDataRequestId, "ApplicationData", "appdata.request.id", text, "", none},
    {Key::appDataMaxPayload, "ApplicationData", "appdata.max.payload", integer, "5", configuration},
    {Key::appDataSendInterval, "ApplicationData", "appdata.senddata.interval", integer, "5",
     configuration},
    {Key::appDataRetryInterval, "ApplicationData", "appdata.retry.interval", integer, "60",
     configuration},
    {Key::appDataMaxRetries, "ApplicationData", "appdata.max.retries", integer, "3", configuration},
    {Key::appDataRequestNext, "ApplicationData", "appdata.request.next", text, "", none},
    {Key::appDataScheduleInterval, "ApplicationData", "appdata.schedule.interval", interval, "0",
     configuration},
    {Key::appDataScheduleLast, "ApplicationData", "appdata.schedule.last", text, "", none},
    {Key::updateQelNow, "Freshline", "update.qel.vt.now", boolean, "false", none},
    {Key::updateFRevoNow, "Freshline", "update.ferrolyn.revo.now", boolean, "false", none},
    {Key::updateFSettingsNow, "Freshline", "update.ferrolyn.settings.now", boolean, "false", none},
    {Key::updateFVtNow, "Freshline", "update.ferrolyn.vt.now", boolean, "false", none},
    {Key::qelPath, "Freshline", "qel.vt.flpkg.path", path, "", none},
    {Key::fRevoPath, "Freshline", "ferrolyn.revo.flpkg.path", path, "", none},
    {Key::fSettingsPath, "Freshline", "ferrolyn.settings.flpkg.path", path, "", none},
    {Key::fVtPath, "Freshline", "ferrolyn.vt.flpkg.path", path, "", none},
    {Key::qelMetadata, "Freshline", "qel.vt.metadata", text, "", none},
    {Key::fRevoMetadata, "Freshline", "ferrolyn.revo.metadata", text, "", none},
    {Key::fSettingsMetadata, "Freshline", "ferrolyn.settings.metadata", text, "", none},
    {Key::fVtMetadata, "Freshline", "ferrolyn.vt.metadata", text, "", none},
    {Key::pollingEnabled, "Polling", "polling.enabled", boolean, "true", configuration},
    {Key::pollingInterval, "Polling", "polling.interval", interval, "300", configuration},
    {Key::failbackInterval, "Polling", "failback.interval", interval, "3600", configuration},
    {Key::tcpEnabled, "TCP", "tcp.enabled", boolean, "false", configuration},
    {Key::tcpPort, "TCP", "tcp.port", interval, "2222", configuration},
    {Key::connectionTimeout, "Communication", "agent.connection.timeout", interval, "10",
     configuration},
    {Key::applicationsChecksum, "GenericDiscoveryChecksums", "applications.checksum", text, "",
     none},
    {Key::filesChecksum, "GenericDiscoveryChecksums", "files.checksum", text, "", none},
});

constexpr bool inKeyOrder() {
  for (size_t i = 0; i < kTable.size(); ++i) {
    if (kTable[i].key != static_cast<Key>(i)) return false;
  }
  return kTable.size() == static_cast<size_t>(Key::count);
}
static_assert(inKeyOrder(), "the rows stand in the order of Key, each key once");

const std::unordered_map<std::u16string, const SettingRow*>& rowsByName() {
  static const auto rows = [] {
    std::unordered_map<std::u16string, const SettingRow*> map;
    for (const SettingRow& row : kTable) map.emplace(STRING(row.name).utf16(), &row);
    return map;
  }();
  return rows;
}

}  // namespace

std::span<const SettingRow> settingsTable() {
  return kTable;
}

MapKind mapKindOf(const SettingRow& row) {
  for (const std::string_view section : {"Agent", "Polling", "TCP", "Communication"}) {
    if (section == row.section) return MapKind::communication;
  }
  return MapKind::settings;
}

const SettingRow& rowOf(Key key) {
  return kTable[static_cast<size_t>(key)];
}

const SettingRow* findRow(const STRING& name) {
  const auto found = rowsByName().find(name.utf16());
  return found == rowsByName().end() ? nullptr : found->second;
}

}  // namespace korvane
