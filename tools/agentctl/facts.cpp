#include "agentctl/facts.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "agent/thread/stop_token.h"
#include "agentctl/events.h"
#include "agentctl/settings_view.h"
#include "config/agent_settings.h"
#include "config/ini_files.h"
#include "config/log_names.h"
#include "config/log_settings.h"
#include "config/masking.h"
#include "config/properties_file.h"
#include "config/server_list.h"
#include "config/service_type.h"
#include "driver/driver.h"
#include "ledger/loss_ledger.h"
#include "logs/file_log_pointer.h"
#include "logs/log_backlog.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "util/dates.h"
#include "util/ignore_result.h"

namespace korvane::agentctl {
namespace {

constexpr size_t kLastErrors = 5;
constexpr int64_t kNsPerMs = 1'000'000;

// The first server of the list; empty without one.
std::string primaryServer(const SettingsView& settings) {
  ServerList servers;
  servers.assign(settings.text(Key::serverList), {});
  return servers.primary().toUtf8();
}

Json filedAgent(Context& context) {
  PropertyList version;
  // A file that is not there names no version.
  ignoreResult(readPropertiesFile(context.system().files,
                                  context.installed("kav-version.properties"), version));
  const STRING number = propertyValue(version, "version");
  const STRING build = propertyValue(version, "build.number");
  return {{"version", (build.empty() ? number : number + "." + build).toUtf8()},
          {"type", readServiceType()}};
}

Json filedServer(const SettingsView& settings) {
  const std::string guid = settings.text(Key::agentId).toUtf8();
  return {{"url", maskedSetting("agent.http.url", settings.text(Key::agentUrl).toUtf8())},
          {"plainHttpAllowed", settings.text(Key::httpPlainEnabled).toBool()},
          {"primary", primaryServer(settings)},
          {"guid", maskedIdentifier(guid)},
          {"registered", !guid.empty()}};
}

Json filedPolicy(const SettingsView& settings) {
  return {{"name", settings.text(Key::policyName).toUtf8()},
          {"id", settings.text(Key::policyId).toUtf8()},
          {"errorCode", settings.text(Key::policyErrorCode).toInt()},
          {"errorText", settings.text(Key::policyErrorString).toUtf8()},
          {"builtIn", settings.text(Key::useBuiltInPolicy).toBool()},
          {"plusFile", settings.text(Key::plusPolicyFile).toUtf8()},
          {"prevention", settings.text(Key::ipsEnabled).toBool()},
          {"rebootRequired", settings.text(Key::ipsRebootRequired).toBool()}};
}

Json filedSigning(const SettingsView& settings) {
  return {{"keys", settings.text(Key::signingKeys).toUtf8()},
          {"minimum", settings.text(Key::signingMinimum).toUtf8()}};
}

// The pointers are read through the settings store, which would copy a damaged agent.ini aside.
Json filedLogs(Context& context, const SettingsView& settings) {
  Json logs = Json::array();
  if (!settings.fault().empty()) return logs;
  const std::unique_ptr<AgentSettings> store = context.openSettings();
  for (const LogBacklog& log :
       logBacklogs(context.system().files, context.system().clock, store->logs))
    logs.push_back({{"type", static_cast<int>(log.type)},
                    {"log", log.log.toUtf8()},
                    {"pointerFile", log.pointerFile.toUtf8()},
                    {"offset", log.offset},
                    {"backlogBytes", log.bytes},
                    {"backlogRecords", log.records},
                    {"recordsExact", log.recordsExact}});
  return logs;
}

// As the agent would find it at its start.
LedgerView filedLedger(Context& context, const SettingsView& settings) {
  platform::Platform& system = context.system();
  LossLedger ledger(system.files, system.clock);
  ledger.look(context.installed("lossledger"));
  if (!settings.fault().empty()) return ledger.view();
  const std::unique_ptr<AgentSettings> store = context.openSettings();
  const FileLogPointer pointer(system.files, store->logs.getLogPointerFileName(HIDS_RT_LOG),
                               platform::OpenMode::read);
  const std::string stream = logBaseName(HIDS_RT_LOG);
  std::optional<StreamState> saved;
  if (pointer.savedAccount()) saved = pointer.savedAccount()->state;
  if (saved) ledger.publish(stream, ledger.resume(stream, saved), 0);
  return ledger.view();
}

Json asJson(const StreamAccount& account) {
  return {{"log", account.stream},          {"since", formatIso8601(account.sinceMs)},
          {"read", account.read},           {"delivered", account.delivered},
          {"waiting", account.waiting},     {"ledgered", account.ledgered},
          {"uncounted", account.uncounted}, {"closed", account.closed()}};
}

Json asJson(const LedgerEntry& entry) {
  return {{"stream", entry.stream},
          {"cause", nameOf(entry.cause)},
          {"counted", entry.counted},
          {"count", entry.count},
          {"parts", entry.parts},
          {"firstPosition", entry.first.position},
          {"lastPosition", entry.last.position},
          {"firstAt", formatIso8601(entry.first.wallMs)},
          {"lastAt", formatIso8601(entry.last.wallMs)},
          {"path", entry.log}};
}

Json totalsAsJson(const LossSums& sums) {
  Json list = Json::array();
  for (size_t i = 0; i < sums.size(); ++i)
    if (sums[i] != LossSum{})
      list.push_back({{"cause", nameOf(static_cast<LossCause>(i))},
                      {"lines", sums[i].lines},
                      {"uncounted", sums[i].uncounted}});
  return list;
}

Json filedErrors(Context& context) {
  const eventlog::Catalogue catalogue = readCatalogue(context);
  Json errors = Json::array();
  std::vector<LogRecord> records =
      newestRecords(context.system().files, context.installed("logs"), kLastErrors,
                    [](const LogRecord& record) { return record.isComplaint(); });
  std::reverse(records.begin(), records.end());
  for (const LogRecord& record : records) {
    Json error = asJson(record, catalogue);
    for (const char* extra : {"process", "thread", "insertions"}) error.erase(extra);
    error["text"] = maskedText(textOf(record, catalogue), {});
    errors.push_back(std::move(error));
  }
  return errors;
}

// What the agent wrote last, as a rule that it stopped.
Json lastEvent(Context& context) {
  const std::vector<LogRecord> records =
      newestRecords(context.system().files, context.installed("logs"), 1,
                    [](const LogRecord& record) { return !record.isTrace(); });
  if (records.empty()) return nullptr;
  const Json event = asJson(records.back(), readCatalogue(context));
  return {{"at", event["at"]},
          {"code", event["code"]},
          {"text", maskedText(event["text"].get<std::string>(), {})}};
}

Json driverItself(Context& context) {
  platform::Platform& system = context.system();
  StopToken stop;
  // Nothing is loaded here, so nobody asks whether prevention is on.
  Driver driver({system.registry, system.devices, system.systemInfo, system.clock, stop,
                 [] { return Driver::Prevention::off; }, [](const STRING&) {}});
  AppliedPolicy policy;
  if (const DriverResult asked = driver.queryPolicy(policy); !asked.ok())
    return {{"answered", false}, {"error", asked.text.toUtf8()}};
  return {{"answered", true},
          {"policy",
           {{"name", policy.name.toUtf8()},
            {"version", policy.version.toUtf8()},
            {"id", policy.id.toUtf8()}}},
          {"builtIn", policy.builtIn != 0}};
}

void addFiles(Context& context, const std::string& folder, Json& out) {
  platform::Files& files = context.system().files;
  const std::string directory = context.installed(folder);
  std::vector<platform::DirectoryEntry> entries;
  // A folder that is not there has no files.
  ignoreResult(files.list(directory, entries));
  for (const platform::DirectoryEntry& entry : entries) {
    platform::FileInfo info;
    if (entry.isDirectory ||
        files.info(platform::joinPath(files, {directory, entry.name}), info) != 0)
      continue;
    if (folder.empty() && entry.name != "builtin.zip") continue;
    out.push_back({{"name", folder.empty() ? entry.name : folder + "/" + entry.name},
                   {"bytes", info.size},
                   {"changedAt", formatIso8601(info.modifiedNs / kNsPerMs)}});
  }
}

bool isPreventionReport(const std::string& text) {
  return text.find("IPS Enabled") != std::string::npos ||
         text.find("IPS Disabled") != std::string::npos;
}

void addServerTrouble(const Json& facts, std::vector<std::string>& out) {
  const bool standard = textAt(facts, "agent/type") == "1";
  if (standard && textAt(facts, "server/url").empty()) {
    out.push_back("no management server is set: agent.http.url is empty");
    return;
  }
  if (standard && textAt(facts, "server/registered") == "false")
    out.push_back("the agent is not registered with its management server");
  const std::string failedAt = textAt(facts, "server/lastError/at");
  if (!failedAt.empty() && failedAt > textAt(facts, "server/lastContactAt"))
    out.push_back("the last exchange with the server failed: " +
                  textAt(facts, "server/lastError/text"));
}

void addPolicyTrouble(const Json& facts, std::vector<std::string>& out) {
  const std::string code = textAt(facts, "policy/errorCode");
  const std::string text = textAt(facts, "policy/errorText");
  if (!code.empty() && code != "0" && !isPreventionReport(text))
    out.push_back("policy error " + code + ": " + text);
  if (textAt(facts, "technologies/IPS") == "Reboot")
    out.push_back("prevention is waiting for a reboot of this machine");
}

}  // namespace

std::string textAt(const Json& facts, const std::string& path) {
  const Json::json_pointer place("/" + path);
  if (!facts.contains(place) || facts[place].is_null()) return {};
  return facts[place].is_string() ? facts[place].get<std::string>() : facts[place].dump();
}

Json filedStatus(Context& context) {
  const SettingsView settings = SettingsView::ofInstallation(context.iniFiles());
  Json facts = {{"running", false},
                {"settings", {{"source", settings.source()}, {"fault", settings.fault()}}},
                {"agent", filedAgent(context)},
                {"server", filedServer(settings)},
                {"policy", filedPolicy(settings)},
                {"signing", filedSigning(settings)},
                {"logs", filedLogs(context, settings)},
                {"lastEvent", lastEvent(context)},
                {"lastErrors", filedErrors(context)},
                {"trace", settings.text(Key::agentLogTrace).toBool()}};
  return facts;
}

Json statusFacts(Context& context) {
  const std::optional<JsonTree> answer = context.askIfRunning("getStatus");
  if (!answer) return filedStatus(context);
  Json facts = {{"running", true}};
  facts.update(typed(*answer));
  return facts;
}

Json ledgerFacts(Context& context) {
  if (const std::optional<JsonTree> answer = context.askIfRunning("getLedger")) {
    Json facts = {{"running", true}};
    facts.update(typed(*answer));
    return facts;
  }
  const LedgerView view = filedLedger(context, SettingsView::ofInstallation(context.iniFiles()));
  Json facts = {{"running", false},
                {"accounts", Json::array()},
                {"totals", totalsAsJson(view.totals)},
                {"entries", Json::array()}};
  for (const StreamAccount& account : view.accounts) facts["accounts"].push_back(asJson(account));
  for (const LedgerEntry& entry : view.entries) facts["entries"].push_back(asJson(entry));
  return facts;
}

Json policyFiles(Context& context) {
  Json files = Json::array();
  for (const char* folder : {"", "driver", "history"}) addFiles(context, folder, files);
  return files;
}

Json policyFacts(Context& context) {
  const std::optional<JsonTree> policy = context.askIfRunning("getPolicy");
  Json facts = {{"running", policy.has_value()}};
  if (policy) {
    facts["policy"] = typed(*policy);
    facts["driver"] = typed(context.ask("queryDriver"));
  } else {
    facts["policy"] = filedPolicy(SettingsView::ofInstallation(context.iniFiles()));
    facts["driver"] = driverItself(context);
  }
  facts["files"] = policyFiles(context);
  return facts;
}

std::vector<std::string> troubleOf(const Json& facts) {
  std::vector<std::string> trouble;
  if (const std::string fault = textAt(facts, "settings/fault"); !fault.empty())
    trouble.push_back(fault);
  addServerTrouble(facts, trouble);
  addPolicyTrouble(facts, trouble);
  return trouble;
}

}  // namespace korvane::agentctl
