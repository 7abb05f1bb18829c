// agentctl config check: every fault of an ini file, as FILE:LINE: error|warning: text.
#include <algorithm>
#include <cerrno>
#include <iostream>
#include <nlohmann/json.hpp>

#include "agentctl/commands.h"
#include "agentctl/failure.h"
#include "agentctl/ini_check.h"
#include "agentctl/json.h"
#include "agentctl/output.h"
#include "config/ini_files.h"
#include "config/ini_text.h"
#include "platform/files.h"
#include "platform/paths.h"

namespace korvane::agentctl {
namespace {

constexpr uint64_t kMostRead = kMaxIniBytes + 1;

struct Checked {
  std::string file;
  std::vector<IniFinding> findings;

  auto errors() const {
    return std::count_if(findings.begin(), findings.end(),
                         [](const IniFinding& finding) { return finding.error; });
  }
};

// What it begins with, one byte more than an ini file may have.
std::string beginningOf(platform::Files& files, const std::string& path) {
  std::unique_ptr<platform::File> file;
  std::string bytes(kMostRead, '\0');
  size_t got = 0;
  int error = files.open(path, platform::OpenMode::read, file);
  if (error == 0) error = file->read(bytes.data(), bytes.size(), got);
  if (error != 0)
    throw Failure(error == EACCES ? ExitStatus::notPermitted : ExitStatus::failed,
                  path + " cannot be read, error " + std::to_string(error) +
                      (error == ENOENT ? ": it does not exist" : ""),
                  error == ENOENT ? "" : "Run this as the agent's account or as administrator.");
  bytes.resize(got);
  return bytes;
}

Checked check(Context& context, const std::string& path) {
  platform::Files& files = context.system().files;
  const std::string fallback =
      platform::joinPath(files, {platform::directoryOf(path), "fallback.ini"});
  const bool isAgentIni = platform::fileNameOf(path) == "agent.ini";
  return {path,
          checkIni(beginningOf(files, path), isAgentIni && platform::fileExists(files, fallback))};
}

std::vector<Checked> checkAll(Context& context, const std::string& file) {
  if (!file.empty()) return {check(context, file)};
  const IniFiles installed = context.iniFiles();
  std::vector<Checked> all;
  for (const std::string& path : {installed.agentIni(), installed.fallbackIni()})
    if (platform::fileExists(context.system().files, path)) all.push_back(check(context, path));
  if (all.empty())
    throw Failure(ExitStatus::failed, "there is no " + installed.agentIni(),
                  "The agent then runs with its defaults; `agentctl config set` creates the file.");
  if (all.front().file != installed.agentIni())
    note(installed.agentIni() + " does not exist; the agent reads fallback.ini instead");
  return all;
}

void print(const Checked& checked) {
  for (const IniFinding& finding : checked.findings)
    std::cout << checked.file << ":" << finding.line << ": "
              << (finding.error ? "error: " : "warning: ") << finding.text << "\n";
  const auto errors = checked.errors();
  const auto warnings = static_cast<std::ptrdiff_t>(checked.findings.size()) - errors;
  std::cout << checked.file << ": " << errors << (errors == 1 ? " error, " : " errors, ")
            << warnings << (warnings == 1 ? " warning" : " warnings") << "\n";
}

Json checkedJson(const Checked& checked) {
  Json findings = Json::array();
  for (const IniFinding& finding : checked.findings)
    findings.push_back({{"line", finding.line},
                        {"kind", finding.error ? "error" : "warning"},
                        {"text", finding.text}});
  return {{"file", checked.file}, {"errors", checked.errors()}, {"findings", std::move(findings)}};
}

ExitStatus check(Context& context, const std::string& file, bool asText) {
  Json all = Json::array();
  bool faulty = false;
  for (const Checked& checked : checkAll(context, file)) {
    faulty |= checked.errors() > 0;
    if (asText)
      print(checked);
    else
      all.push_back(checkedJson(checked));
  }
  if (!asText) std::cout << text(all);
  return faulty ? ExitStatus::trouble : ExitStatus::ok;
}

}  // namespace

void addConfigCheck(CLI::App& config, Context& context, Action& chosen) {
  CLI::App* command = config.add_subcommand("check", "Checks an ini file without changing it");
  const auto file = std::make_shared<std::string>();
  command->add_option("FILE", *file,
                      "The file; default: agent.ini and fallback.ini of the installation");
  command->callback([file, &context, &chosen] {
    chosen = [file, &context] { return check(context, *file, !context.options.json); };
  });
}

}  // namespace korvane::agentctl
