#include "bench/bench_agent.h"

#include <stdexcept>

#include "agent/thread/stop_token.h"
#include "config/install_root.h"
#include "config/service_type.h"
#include "config/settings.h"
#include "ledger/loss_ledger.h"
#include "platform/files.h"
#include "platform/platform.h"

namespace korvane::bench {

ForwardingParts setUpAgent(const AgentSettings& settings) {
  setInstallRoot(settings.stateFolder);
  if (const int error = platform::current().files.makeDirectories(installDirectory()))
    throw std::runtime_error(installDirectory() + " cannot be made: error " +
                             std::to_string(error));
  setServiceType(1);
  AgentConfig& config = *AgentConfig::getInstance();
  const AgentConfig::ChangeGroup oneWrite(config);
  if (!settings.url.empty()) config.setURL(settings.url);
  if (!settings.caFile.empty()) config.setSSLCertFile(settings.caFile);
  config.setUniqueId("00000000-0000-4000-8000-000000000001");
  config.setMaxMessagesToRead(settings.readLimit);
  config.setMaxBatchSize(settings.batchLimit);
  config.setConsolidateLogs(settings.folding);
  config.setHIDSRTLogFile(settings.log);
  static ForwardingCounters counters(platform::current().clock);
  static LossLedger ledger(platform::current().files, platform::current().clock);
  ledger.open(installedFile("lossledger"));
  const Settings sections = settingsOf(config);
  return {platform::current().files,
          platform::current().clock,
          shutdownToken(),
          sections.logs,
          sections.machine,
          nullptr,
          counters,
          ledger};
}

bool BenchProcessor::PostRealTimeProcessing(const STRING& file) {
  _finished = true;
  return _keepLog ? false : LogProcessor::PostRealTimeProcessing(file);
}

}  // namespace korvane::bench
