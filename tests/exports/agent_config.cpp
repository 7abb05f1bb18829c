#include "outside.h"

using korvane::AgentConfig;
using korvane::LogType;

static int gTold = 0;

#define ROUND_TRIP(name, value) \
  (config.set##name(value), expect(config.get##name() == (value), #name))

static void identity(AgentConfig& config) {
  ROUND_TRIP(UniqueId, text("guid"));
  expect(config.registered(), "an agent with an identity is registered");
  config.clearUniqueId(text("guid"));
  expect(!config.registered(), "the identity was taken back");
  ROUND_TRIP(URL, text("https://192.0.2.1:443/sis-agent/"));
  config.setURLHost(text("192.0.2.2"));
  config.setURLPort(text("8443"));
  config.setURLProtocol(text("http"));
  expect(config.getURL() == text("http://192.0.2.2:8443/sis-agent/"), "the URL in parts");
  config.setServerList(text("192.0.2.1, 192.0.2.2"));
  expect(config.getServerList() == text("192.0.2.1, 192.0.2.2") &&
             config.getServerListSize() == 2 && config.getServerEntry(2) == text("192.0.2.2") &&
             config.getServerPrimary() == text("192.0.2.1") &&
             config.getServerCurrent() == text("192.0.2.1") &&
             config.getServerLast() == text("Unknown"),
         "the server list");
  ROUND_TRIP(ServerCurrent, text("192.0.2.2"));
  config.setServerNext(text("192.0.2.2"));
  expect(config.getServerNext() == text("192.0.2.1"), "the next one is the one behind it");
  ROUND_TRIP(ServerLast, text("192.0.2.1"));
  ROUND_TRIP(SSLCertFile, text("trust.pem"));
  ROUND_TRIP(SoftwareUpdateDirectory, text("update"));
  expect(config.updateInProgress(), "an update directory is an update in progress");
  config.setSoftwareUpdateDirectory(text(""));
  config.setServerList(text(""));
  config.setURL(text("https://127.0.0.1:9/sis-agent/"));
}

static void policyState(AgentConfig& config) {
  ROUND_TRIP(PlusPolicyFile, text("policy.sbp.zip"));
  config.setPlusVersion(text("name 1"));
  config.setPlusID(text("id"));
  config.setPlusDBPath(text("path"));
  expect(config.getPolicyID() == text("id"), "the policy's identifier");
  config.setUseBuiltInPolicy(false);
  expect(!config.useBuiltInPolicy(), "the assigned policy is used");
  config.updatedDriverForBuiltIn();
  expect(!config.useBuiltInPolicyChanged(), "the driver knows");
  config.setPolicyState(-100,
                        text("Driver is using the builtin policy and not the assigned policy."));
  expect(config.hasPolicyStateChanged() && config.hasRealPolicyStateChanged() &&
             config.getPolicyStateCode() == -100,
         "a changed state");
  config.setPolicyStateChanged(false);
  config.setPolicyError(66, text("refused"));
  expect(config.hasPolicyErrorChanged() && config.getPolicyErrorCode() == 66 &&
             config.getPolicyErrorStr() == text("refused"),
         "a changed error");
  config.setPolicyErrorChanged(false);
  expect(!config.hasPolicyStateChanged() && !config.hasPolicyErrorChanged(), "told");
  config.setRetranslateNow(true);
  expect(config.getRetranslateNow() && !config.getRetranslateIDSNow(), "a retranslation is due");
  config.setRetranslateNow(false);
  config.setRebootSource(text("config tool"));
  config.setIPSServiceStatus(0);
  (void)config.isIPSRebootDone();
  (void)config.isSystemRebootDone();
  config.updateRebootRequiredFlag();
}

static void defaults(AgentConfig& config) {
  expect(config.autoRetransEnabled() && config.getAutoRetransInterval() == 600 &&
             config.pollingEnabled() && config.getPollingInterval() == 300 &&
             config.getFailbackInterval() == 3600 && !config.tcpNotificationsEnabled() &&
             config.getTCPNotificationPort() == 2222 && config.getConnectionTimeout() == 10 &&
             config.isIPSEnabled() && config.consolidateLogs() &&
             config.getLogConsolidatePeriod() == 5 && !config.logTraceMessages() &&
             config.getMaxMessagesToRead(korvane::HIDS_RT_LOG) == 300 &&
             config.getMaxBatchSize(korvane::HIDS_RT_LOG) == 1 && config.getCharset() == text(""),
         "defaults of an agent without a file");
  (void)config.isUnicode();
  (void)config.getHostname();
  (void)config.getIPAddress();
  (void)config.getOS();
  (void)config.getKorvaneVersion();
  (void)config.getWhoIsRunning();
  (void)config.getIDSPlusFileName();
  (void)config.getHIDSInterface();
  (void)config.agentLogFileChanged();
  (void)config.getQelFL();
  (void)config.getQelVtFlpkgPath();
  (void)config.getFerrolynRevoPath();
  (void)config.getFerrolynSettingsPath();
  (void)config.getFerrolynVtPath();
  config.rolledAgentLogFile();
  config.setUpdateQELNow(false);
  config.setUpdateFRevoNow(false);
  config.setUpdateFSettingsNow(false);
  config.setUpdateFVTNow(false);
}

static void filesAndMarks(AgentConfig& config) {
  bool changed = true;
  config.loadIniFile();
  config.loadIniFile(changed);
  config.newConfiguration({{text("polling.interval"), text("60")}});
  expect(config.getPollingInterval() == 60, "a setting from the server");
  config.setValue(text("some.other.key"), text("value"));
  expect(config.updateIniFile(false, false, text("")) && config.UpdateAllIni(),
         "both files written");
  AgentConfig::readConfigFile();
  expect(config.exportConfigData() != text(""), "the whole configuration as text");
  expect(!Pairs(config.getAttributes()).empty() && !Pairs(config.getConfiguration()).empty(),
         "what registration sends");
  config.registerSubscriber(1, [](void*) { ++gTold; });
  config.setFipsEnabled(false);
  config.setAppDataRequested(true);
  config.setAppDataRequestID(text("7"));
  expect(config.isAppDataRequested() && config.getAppDataRequestID() == text("7"), "a request");
  config.setAppDataRequested(false);
  config.setHIDSLogFile(text("hids.csv"));
  config.setHIDSRTLogFile(text("rt.csv"));
  expect(config.getCurrentLogFile(korvane::HIDS_LOG) == text("hids.csv") &&
             config.getCurrentLogFile(korvane::HIDS_RT_LOG) == text("rt.csv") &&
             config.getCurrentLogFile(static_cast<LogType>(1)) == text("") &&
             config.getLogTypeByName(korvane::AGENT_LOG) == text("AgentLog") &&
             AgentConfig::getLogPointerFileName(static_cast<LogType>(3)) == text(""),
         "log types");
  config.setFirstUpdateDone();
  expect(config.isFirstUpdateDone(), "the first update");
  config.setAgentShuttingdown(true);
  expect(config.isAgentShuttingDown(), "shutting down");
  config.setAgentShuttingdown(false);
}

void useAgentConfig() {
  AgentConfig* config = AgentConfig::getInstance();
  defaults(*config);
  identity(*config);
  policyState(*config);
  filesAndMarks(*config);
  AgentConfig::freeInstance();
}
