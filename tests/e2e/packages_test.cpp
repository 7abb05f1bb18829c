// Content and software packages, from the server's assignment to what lies on the agent's
// disk and what it reports.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/e2e/installed_agent.h"
#include "tests/support/zip_maker.h"

namespace korvane {
namespace {

using ::testing::HasSubstr;
using tests::InstalledAgent;

// The last result of each kind that the server has, as "kind code".
std::string resultsOf(const InstalledAgent& agent) {
  std::string text;
  const nlohmann::json states = agent.get("/policy-state");
  if (!states.empty())
    for (const auto& [type, result] : states[0]["updates"].items())
      text += type + " " + result["code"].dump() + "\n";
  return text;
}

bool arrives(const InstalledAgent& agent, const std::string& result) {
  return tests::eventually([&] { return resultsOf(agent).find(result) != std::string::npos; });
}

TEST(Packages, AreFetchedHandedOverAndReportedAlsoAtTheNextStart) {
  InstalledAgent agent;
  agent.startServer();
  agent.configure(agent.serverPort(), "[Polling]\npolling.interval=1\n");
  agent.write("root/IDS/ids.properties", "ids.service.eventfile.name=events.csv\n");
  agent.write("server/served/good.zip",
              tests::makeZip({{.name = "rules/one.dat", .content = "rules"},
                              {.name = "package.properties", .content = "package.version=7\n"}}));
  agent.write("server/served/bad.zip", tests::makeZip({{.name = "../evil", .content = "x"}}));
  agent.command("/assign", {{"kind", "qel"}, {"file", "good.zip"}, {"until", "result"}});
  agent.command("/assign", {{"kind", "ferrolyn.vexvt"}, {"file", "bad.zip"}, {"until", "result"}});
  agent.command("/assign", {{"kind", "software"},
                            {"file", "good.zip"},
                            {"until", "result"},
                            {"properties", {{"software.name", "agent-2"}}}});
  agent.start();
  EXPECT_TRUE(arrives(agent, "qel 0")) << agent.log();
  EXPECT_TRUE(arrives(agent, "ferrolyn.vexvt 36")) << agent.log();
  EXPECT_TRUE(arrives(agent, "software 0")) << agent.log();
  EXPECT_TRUE(agent.logged(",10586,"));
  const std::string pointer = tests::contentOf(agent.path("root/IDS/content/qel.properties"));
  EXPECT_THAT(pointer, HasSubstr("package.version=7\n"));
  EXPECT_FALSE(std::filesystem::exists(agent.path("root/IPS/content/evil")));
  int status = -1;
  ASSERT_GE(agent.stop(status), 0);
  std::ofstream(agent.path("root/IPS/update/software/swupdate.results"), std::ios::app)
      << "result.errorcode=3\nresult.errormessage=no space\n";
  agent.start();
  EXPECT_TRUE(arrives(agent, "software 3")) << agent.log();
  // A stop before the answer has arrived leaves the report to the next start.
  EXPECT_TRUE(tests::eventually([&] {
    return tests::contentOf(agent.path("root/IPS/agent.ini")).find("agent.update=\n") !=
           std::string::npos;
  }));
  EXPECT_GE(agent.stop(status), 0);
}

}  // namespace
}  // namespace korvane
