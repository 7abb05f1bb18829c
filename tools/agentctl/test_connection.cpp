// agentctl test-connection: the way to the management server, stage by stage. It needs no
// running agent.
#include <iostream>
#include <nlohmann/json.hpp>

#include "agentctl/commands.h"
#include "agentctl/connection.h"
#include "agentctl/failure.h"
#include "agentctl/output.h"
#include "agentctl/settings_view.h"
#include "comm/server_connection.h"

namespace korvane::agentctl {
namespace {

ExitStatus testIt(Context& context, const std::string& server) {
  const ConnectionReport report = connectionReport(context, server);
  if (context.options.json)
    std::cout << text(asJson(report));
  else
    std::cout << toText(report);
  return report.ok ? ExitStatus::ok : ExitStatus::trouble;
}

}  // namespace

ConnectionReport connectionReport(Context& context, const std::string& server) {
  // The settings store would wait for a lock file that it may not have.
  const SettingsView settings = SettingsView::ofInstallation(context.iniFiles());
  if (!settings.fault().empty())
    note(settings.fault() + "; the test uses the settings of " + settings.source());
  const ServerConnection& connection = currentConnection();
  return connection.test(connection.target(server));
}

Json asJson(const ConnectionReport& report) {
  Json stages = Json::array();
  for (const StageReport& stage : report.stages)
    stages.push_back({{"name", stage.name},
                      {"ok", stage.ok},
                      {"milliseconds", stage.milliseconds},
                      {"detail", stage.detail}});
  Json certificates = Json::array();
  for (const CertificateReport& one : report.certificates)
    certificates.push_back({{"subject", one.subject},
                            {"issuer", one.issuer},
                            {"notBefore", one.notBefore},
                            {"notAfter", one.notAfter},
                            {"error", one.error}});
  return {{"url", report.url},
          {"ok", report.ok},
          {"stages", std::move(stages)},
          {"certificates", std::move(certificates)},
          {"failingStage", report.failingStage},
          {"cause", report.cause},
          {"nextStep", report.nextStep},
          {"proxy", report.proxy},
          {"milliseconds", report.milliseconds}};
}

void addTestConnection(CLI::App& app, Context& context, Action& chosen) {
  CLI::App* command = app.add_subcommand(
      "test-connection",
      "Tests the connection to the management server, stage by stage; takes up to 30 seconds");
  const auto server = std::make_shared<std::string>();
  command->add_option("--server", *server, "A host name or address to use instead of the URL's");
  command->callback([server, &context, &chosen] {
    chosen = [server, &context] { return testIt(context, *server); };
  });
}

}  // namespace korvane::agentctl
