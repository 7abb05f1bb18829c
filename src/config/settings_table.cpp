#include "config/settings_table.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <unordered_map>

namespace korvane {
namespace {

using enum ValueType;
using enum Report;
using enum Effect;

// One line each, in the order of Key; script/make-ini-reference makes the reference of them.
// clang-format off
constexpr auto kTable = std::to_array<SettingRow>({
    {Key::agentInitialGroup, "Agent", "agent.initial.group", text, "", attribute, atOnce, "group of the agent at enrolment"},
    {Key::agentConfigInitialGroup, "Agent", "agent.config.initial.group", text, "", attribute, nextStart, "configuration group at enrolment"},
    {Key::configInitialGroup, "Agent", "config.initial.group", text, "", attribute, nextStart, "common configuration group at enrolment"},
    {Key::agentCharset, "Agent", "agent.charset", text, "", attribute, atOnce, "sent as Korvane-Charset"},
    {Key::agentName, "Agent", "agent.name", text, "", attribute, nextStart, "name of the agent"},
    {Key::agentOpstateInterval, "Agent", "agent.opstate.interval", text, "", attribute, otherPrograms, "interval of operational-state reports, for the server"},
    {Key::agentId, "Agent", "agent.id", text, "", attribute, atOnce, "identifier that the server assigned; empty: not registered"},
    {Key::agentUrl, "Agent", "agent.http.url", text, "", configuration, atOnce, "URL of the management server with its path prefix"},
    {Key::serverList, "Agent", "server.list", text, "", configuration, atOnce, "management servers, separated by commas; below"},
    {Key::agentUpdate, "Agent", "agent.update", path, "", none, nextStart, "directory of a software update that is being installed"},
    {Key::agentFeatures, "Agent", "agent.features", text, "", attribute, nextStart, "feature list, reported at registration"},
    {Key::httpPlainEnabled, "Agent", "agent.http.plain.enabled", boolean, "false", none, atOnce, "`agent.http.url` may be one of http, whose exchanges anybody on the way reads and changes; event 10511 at every start and a line of `agentctl status` say so. Without it such a URL sends nothing"},
    {Key::fipsEnabled, "FIPS", "fips.enabled", boolean, "false", configuration, nextStart, "FIPS mode of the cryptographic library; new connections have it at once, below"},
    {Key::autoRetransEnabled, "AutoRetrans", "autoretrans.enabled", boolean, "true", configuration, atOnce, "retranslate the policy periodically"},
    {Key::autoRetransInterval, "AutoRetrans", "autoretrans.interval", interval, "600", configuration, atOnce, "seconds; a new value is counted when the old one has run out, on an agent without a server at the next start"},
    {Key::autoRetransNow, "AutoRetrans", "autoretrans.now", boolean, "false", none, atOnce, "retranslate now; the agent clears it"},
    {Key::agentLogFile, "AgentLog", "agentlog.logfile", path, "", none, atOnce, "the agent's own log file; the agent sets it when it begins another one"},
    {Key::agentLogTrace, "AgentLog", "agentlog.log.trace.messages", boolean, "false", configuration, atOnce, "write trace lines"},
    {Key::agentLogPointer, "AgentLog", "agentlog.file.pointer", path, "", none, otherPrograms, "a read pointer in the own log, for programs that read it; the agent uses its [pointer files](file-formats.md)"},
    {Key::agentLogRolloverPending, "AgentLog", "agentlog.rollover.pending", boolean, "false", none, otherPrograms, "the agent's own log has gone on in another file since this was last false: the agent sets it, whoever collects the logs clears it"},
    {Key::plusPolicyFile, "Driver", "plus.policy.file", path, "", none, atOnce, "policy file sent with registration"},
    {Key::policyName, "Driver", "policy.name", text, "", none, atOnce, "name and version of the driver's policy, one blank between them"},
    {Key::policyId, "Driver", "policy.id", text, "", none, atOnce, "identifier of the driver's policy"},
    {Key::policyPath, "Driver", "policy.path", text, "", none, atOnce, "path of the policy in the server's database"},
    {Key::useBuiltInPolicy, "Driver", "use.builtin.policy", boolean, "false", none, atOnce, "the driver shall run its built-in policy; a value that it refused is not stored"},
    {Key::ipsEnabled, "Driver", "ips.enabled", boolean, "true", configuration, atOnce, "prevention is on"},
    {Key::ipsRebootRequired, "Driver", "ips.reboot.required", boolean, "false", none, atOnce, "a reboot of the driver is outstanding; follows the registry"},
    {Key::rebootRequested, "Driver", "configtool.reboot.requested", boolean, "false", none, atOnce, "the configuration tool asked for a restart of the machine: told in the status and with events 10743 and 10744; cleared with `ips.reboot.required`"},
    {Key::rebootSource, "Driver", "source.reboot.requested", text, "", none, atOnce, "on whose behalf, for those texts"},
    {Key::fimRebootRequired, "Driver", "fim.reboot.required", boolean, "false", none, atOnce, "a reboot for real-time file integrity monitoring is outstanding"},
    {Key::fimRebootRequested, "Driver", "configtool.fim.reboot.requested", boolean, "false", none, atOnce, "the same request for real-time file integrity monitoring"},
    {Key::fimEnabled, "Driver", "fim.enabled", boolean, "false", configuration, atOnce, "real-time file integrity monitoring is on"},
    {Key::driverLogFile, "DriverLog", "driverlog.logfile", path, "", none, atOnce, "the driver's event log, as its parameters name it; the agent looks once a minute and corrects this"},
    {Key::driverProfileLogFile, "DriverLog", "driverlog.profile.logfile", path, "", none, atOnce, "the driver's profile log, likewise"},
    {Key::driverLogPointer, "DriverLog", "driverlog.file.pointer", path, "", none, otherPrograms, "a read pointer in the driver's log, for programs that read it"},
    {Key::driverLogRolloverPending, "DriverLog", "driverlog.rollover.pending", boolean, "false", none, otherPrograms, "the driver's event log has gone on in another file since this was last false: the agent sets it, whoever collects the logs clears it"},
    {Key::idsPolicyInitialGroup, "IDS", "ids.policy.initial.group", text, "", attribute, nextStart, "IDS policy group at enrolment"},
    {Key::idsConfigInitialGroup, "IDS", "ids.config.initial.group", text, "", attribute, nextStart, "IDS configuration group at enrolment"},
    {Key::idsPlusPolicyFile, "IDS", "ids.plus.policy.file", path, "", none, atOnce, "IDS policy file"},
    {Key::idsSignalTimeout, "IDS", "ids.signal.timeout", integer, "10", configuration, atOnce, "seconds the agent waits for an answer from the IDS component"},
    {Key::sslTrustStore, "System", "ssl.trustStore", path, "", none, atOnce, "certificate file that the server must chain to"},
    {Key::sslServerNames, "System", "ssl.server.names", text, "", none, atOnce, "host names and addresses, separated by commas: the server's certificate must have one of them; below"},
    {Key::sslServerPins, "System", "ssl.server.pins", text, "", none, atOnce, "pins of public keys, separated by commas: the server's certificate must have one of these keys; below"},
    {Key::sslCrlFile, "System", "ssl.crl.file", path, "", none, atOnce, "file with revocation lists, PEM; below"},
    {Key::sslClientCertificate, "System", "ssl.client.certificate", path, "", none, atOnce, "file with the agent's own certificate, PEM, and those between it and its authority"},
    {Key::sslClientKey, "System", "ssl.client.key", path, "", none, atOnce, "file with its key, PEM, without a pass phrase; empty: the key is in the certificate's file"},
    {Key::sslMinimumVersion, "System", "ssl.minimum.version", text, "", none, atOnce, "lowest TLS version, `1.2` or `1.3`, without the fall-back to older ones; empty: 1.2, with the fall-back"},
    {Key::settingsLocalOnly, "System", "settings.local.only", text, "", none, atOnce, "keys, separated by commas, that no server and no program on a pipe may set; below"},
    {Key::signingKeys, "System", "update.signing.keys", path, "", none, atOnce, "PEM file of the trusted signers, by its full path: policies, content and software are accepted from them alone ([signed-content.md](signed-content.md)); empty: nothing has to be signed. This key and the next are refused from a server or a pipe"},
    {Key::signingMinimum, "System", "update.signing.minimum", interval, "1", none, atOnce, "how many of them must have signed, 1 to 16"},
    {Key::logDiskUpperLimit, "Log", "log.disk.upperlimit", integer, "90", configuration, atOnce, "percent of the disk used at which finished logs are removed; 0: no limit ([bulk-logs.md](bulk-logs.md#disk-limits))"},
    {Key::logDiskLowerLimit, "Log", "log.disk.lowerlimit", integer, "80", configuration, atOnce, "percent down to which they are removed"},
    {Key::bulkIdleInterval, "Log", "log.bulktransfer.idleinterval", integer, "300", configuration, atOnce, "seconds between looks for logs to send or to remove"},
    {Key::bulkBacklogInterval, "Log", "log.bulktransfer.backloginterval", integer, "60", configuration, atOnce, "seconds between bundles while more waits than one holds, and before one is offered again"},
    {Key::bulkOpenFileLimit, "Log", "log.bulktransfer.openfilelimit", integer, "16", configuration, atOnce, "logs in one bundle, 1 to 1000"},
    {Key::logConsolidate, "Log", "log.consolidate", boolean, "true", configuration, atOnce, "fold identical events"},
    {Key::logConsolidateValue, "Log", "log.consolidate.value", interval, "5", configuration, atOnce, "minutes"},
    {Key::logDeleteEnabled, "Log", "log.delete.enabled", boolean, "true", configuration, atOnce, "remove logs that the server has; false: keep local copies ([bulk-logs.md](bulk-logs.md#kept-logs))"},
    {Key::bulkEnabled, "Log", "log.bulktransfer.enabled", boolean, "false", configuration, atOnce, "send finished logs in zip archives ([bulk-logs.md](bulk-logs.md))"},
    {Key::logCollectSha256, "Log", "log.collectsha256hash", boolean, "false", configuration, atOnce, "SHA-256 of each log part in the manifest"},
    {Key::logReaderLimit, "Log", "log.reader.limit", integer, "300", configuration, atOnce, "records read in one pass"},
    {Key::logWriterLimit, "Log", "log.writer.limit", integer, "1", configuration, atOnce, "records in one message; one is sent every other second"},
    {Key::logPriority, "Log", "log.priority", text, "norm", configuration, atOnce, "priority of the bulk log thread: \"low\", \"norm\" or \"high\""},
    {Key::logRolloverCause, "Log", "log.rollover.cause", enumeration, "0", configuration, atOnce, "what makes the agent's own log roll over; the values are in [file-formats.md](file-formats.md)"},
    {Key::logRolloverValue, "Log", "log.rollover.value", text, "50", configuration, atOnce, "the limit for that"},
    {Key::externalLog, "ExternalLogs", "external.log", paths, "", configuration, atOnce, "further logs to send in bulk: full paths with `*` and `?` in the name, separated by `;`"},
    {Key::policyErrorCode, "PolicyState", "policy.state.error.code", integer, "0", none, atOnce, "last policy error"},
    {Key::policyErrorString, "PolicyState", "policy.state.error.string", text, "No Error", none, atOnce, "its text"},
    {Key::ipsImportFileMaxLines, "Policy", "ips.importfile.maxlines", integer, "10000", configuration, otherPrograms, "most lines of a file that a policy imports, for the translator"},
    {Key::overrideTimeout, "PolicyOverride", "override.timeout", integer, "90", configuration, otherPrograms, "minutes that an override of the policy lasts, for the program that makes one"},
    {Key::appDataConfigFile, "ApplicationData", "appdata.config.file", path, "", none, atOnce, "discovery definition file ([discovery.md](discovery.md))"},
    {Key::appDataConfigV2File, "ApplicationData", "appdata.configV2.file", path, "", none, atOnce, "the same in its second format"},
    {Key::appDataRequested, "ApplicationData", "appdata.requested", boolean, "false", none, atOnce, "a request for [application data](application-data.md) is being served"},
    {Key::appDataRequestId, "ApplicationData", "appdata.request.id", text, "", none, atOnce, "identifier of that request"},
    {Key::appDataMaxPayload, "ApplicationData", "appdata.max.payload", integer, "5", configuration, atOnce, "MiB of the archive in one message, 1 to 16"},
    {Key::appDataSendInterval, "ApplicationData", "appdata.senddata.interval", integer, "5", configuration, atOnce, "seconds between messages; 0: none"},
    {Key::appDataRetryInterval, "ApplicationData", "appdata.retry.interval", integer, "60", configuration, atOnce, "seconds until a message that was not taken is sent again, at least 1"},
    {Key::appDataMaxRetries, "ApplicationData", "appdata.max.retries", integer, "3", configuration, atOnce, "how many times in a row, before the request is given up"},
    {Key::appDataRequestNext, "ApplicationData", "appdata.request.next", text, "", none, atOnce, "identifier of the request that is served afterwards"},
    {Key::appDataScheduleInterval, "ApplicationData", "appdata.schedule.interval", interval, "0", configuration, atOnce, "seconds between inventories of the agent's own schedule, at least 60; 0: it has none"},
    {Key::appDataScheduleLast, "ApplicationData", "appdata.schedule.last", text, "", none, atOnce, "when the last inventory began, milliseconds since 1970 UTC; kept while there is a schedule"},
    {Key::updateQelNow, "Freshline", "update.qel.vt.now", boolean, "false", none, atOnce, "the QEL package is to be installed at once"},
    {Key::updateFRevoNow, "Freshline", "update.ferrolyn.revo.now", boolean, "false", none, atOnce, "the same for the Ferrolyn revocation package"},
    {Key::updateFSettingsNow, "Freshline", "update.ferrolyn.settings.now", boolean, "false", none, atOnce, "for the Ferrolyn settings package"},
    {Key::updateFVtNow, "Freshline", "update.ferrolyn.vt.now", boolean, "false", none, atOnce, "for the Ferrolyn VT package"},
    {Key::qelPath, "Freshline", "qel.vt.flpkg.path", path, "", none, atOnce, "folder of the QEL package"},
    {Key::fRevoPath, "Freshline", "ferrolyn.revo.flpkg.path", path, "", none, atOnce, "of the revocation package"},
    {Key::fSettingsPath, "Freshline", "ferrolyn.settings.flpkg.path", path, "", none, atOnce, "of the settings package"},
    {Key::fVtPath, "Freshline", "ferrolyn.vt.flpkg.path", path, "", none, atOnce, "of the VT package"},
    {Key::qelMetadata, "Freshline", "qel.vt.metadata", text, "", none, atOnce, "metadata of the QEL package"},
    {Key::fRevoMetadata, "Freshline", "ferrolyn.revo.metadata", text, "", none, atOnce, "of the revocation package"},
    {Key::fSettingsMetadata, "Freshline", "ferrolyn.settings.metadata", text, "", none, atOnce, "of the settings package"},
    {Key::fVtMetadata, "Freshline", "ferrolyn.vt.metadata", text, "", none, atOnce, "of the VT package"},
    {Key::pollingEnabled, "Polling", "polling.enabled", boolean, "true", configuration, atOnce, "poll the management server"},
    {Key::pollingInterval, "Polling", "polling.interval", interval, "300", configuration, atOnce, "seconds; a new value is counted when the old one has run out"},
    {Key::failbackInterval, "Polling", "failback.interval", interval, "3600", configuration, atOnce, "seconds after which the agent tries its primary server again"},
    {Key::tcpEnabled, "TCP", "tcp.enabled", boolean, "false", configuration, atOnce, "listen for notifications of the server"},
    {Key::tcpPort, "TCP", "tcp.port", interval, "2222", configuration, atOnce, "port of the listener"},
    {Key::connectionTimeout, "Communication", "agent.connection.timeout", interval, "10", configuration, atOnce, "connect time-out in seconds"},
    {Key::applicationsChecksum, "GenericDiscoveryChecksums", "applications.checksum", text, "", none, atOnce, "checksum of the applications in the inventory that was delivered last; empty: the next one is delivered whole"},
    {Key::filesChecksum, "GenericDiscoveryChecksums", "files.checksum", text, "", none, atOnce, "the same of its files"},
});
// clang-format on

constexpr bool inKeyOrder() {
  for (size_t i = 0; i < kTable.size(); ++i) {
    if (kTable[i].key != static_cast<Key>(i)) return false;
  }
  return kTable.size() == static_cast<size_t>(Key::count);
}
static_assert(inKeyOrder(), "the rows stand in the order of Key, each key once");
static_assert(
    std::ranges::all_of(kTable, [](const SettingRow& row) { return row.meaning && *row.meaning; }),
    "each row says when its setting takes effect and what it means");

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

const char* effectText(Effect effect) {
  constexpr const char* texts[] = {"at once", "at the next start", "kept for other programs"};
  return texts[static_cast<size_t>(effect)];
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
