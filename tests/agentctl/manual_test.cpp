// The manual page and the documentation name all that the command line takes and how it ends.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "agentctl/command_line.h"

namespace korvane::agentctl {
namespace {

std::string contentOf(const std::string& name) {
  std::ifstream file(std::string(KORVANE_SOURCE_DIR) + "/" + name, std::ios::binary);
  EXPECT_TRUE(file) << name;
  std::string text = (std::stringstream() << file.rdbuf()).str();
  std::erase(text, '\\');  // troff writes "\-\-json"
  return text;
}

void checkCommand(const CLI::App& command, const std::string& path, const std::string& name,
                  const std::string& text) {
  EXPECT_NE(text.find(path.empty() ? "agentctl" : "agentctl " + path), std::string::npos)
      << name << ": " << path;
  for (const CLI::Option* option : command.get_options())
    for (const std::string& longName : option->get_lnames())
      EXPECT_NE(text.find("--" + longName), std::string::npos)
          << name << ": " << path << " --" << longName;
  for (const CLI::App* below : command.get_subcommands([](const CLI::App*) { return true; }))
    checkCommand(*below, (path.empty() ? "" : path + " ") + below->get_name(), name, text);
}

TEST(AgentctlManual, NamesEveryCommandOptionAndExitStatus) {
  Context context;
  Action chosen;
  const auto app = makeCommandLine(context, chosen);
  for (const std::string name : {"packaging/agentctl.1", "docs/agentctl.md"}) {
    const std::string text = contentOf(name);
    checkCommand(*app, "", name, text);
    for (const ExitStatusRow& row : kExitStatuses)
      EXPECT_NE(text.find(row.meaning), std::string::npos) << name << ": " << row.meaning;
  }
}

}  // namespace
}  // namespace korvane::agentctl
