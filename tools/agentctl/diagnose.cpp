// agentctl diagnose: one zip with what helps to see what is wrong with an agent, and
// without a secret.
#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>

#include "agentctl/commands.h"
#include "agentctl/diagnosis.h"
#include "agentctl/failure.h"
#include "agentctl/output.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "platform/system_info.h"
#include "util/dates.h"

namespace korvane::agentctl {
namespace {

struct DiagnoseOptions {
  std::string file;
  bool force = false;
  bool offline = false;
};

std::string usualName(platform::Platform& system) {
  std::string stamp = formatTimestamp(system.clock.wallMs()).substr(0, 19);
  std::erase_if(stamp, [](char c) { return c == '-' || c == ':'; });
  std::replace(stamp.begin(), stamp.end(), ' ', '-');
  return "korvane-diagnose-" + system.systemInfo.hostName() + "-" + stamp + ".zip";
}

// What the zip must not take the place of: a device, a pipe, a socket.
bool isDevice(const std::string& path) {
  std::error_code ignored;
  return std::filesystem::is_other(std::u8string(path.begin(), path.end()), ignored);
}

void write(platform::Files& files, const std::string& path, const std::string& bytes) {
  const int error = platform::writeFileAtomically(files, path, bytes);
  if (error == 0) return;
  throw Failure(error == EACCES || error == EPERM ? ExitStatus::notPermitted : ExitStatus::failed,
                path + " cannot be written, error " + std::to_string(error),
                "Choose another place with -o FILE.");
}

ExitStatus diagnose(Context& context, const DiagnoseOptions& options) {
  platform::Platform& system = context.system();
  const std::string path = options.file.empty() ? usualName(system) : options.file;
  if (isDevice(path))
    throw Failure(ExitStatus::failed, path + " is not a file", "Choose a file with -o FILE.");
  platform::FileInfo info;
  if (system.files.info(path, info) == 0 && (info.isDirectory || !options.force))
    throw Failure(
        ExitStatus::failed, path + (info.isDirectory ? " is a folder" : " already exists"),
        info.isDirectory ? "Choose a file with -o FILE."
                         : "Choose another file with -o FILE, or replace it with --force.");
  Diagnosis diagnosis(context, options.offline);
  const std::string bytes = diagnosis.collect(path);
  write(system.files, path, bytes);
  if (context.options.json) {
    std::cout << text({{"file", path},
                       {"bytes", bytes.size()},
                       {"entries", diagnosis.entries()},
                       {"problems", diagnosis.problems()}});
    return ExitStatus::ok;
  }
  for (const std::string& problem : diagnosis.problems()) note(problem);
  std::cout << path << ": " << bytes.size() << " bytes\n";
  for (const std::string& entry : diagnosis.entries()) std::cout << "  " << entry << "\n";
  return ExitStatus::ok;
}

}  // namespace

void addDiagnose(CLI::App& app, Context& context, Action& chosen) {
  CLI::App* command = app.add_subcommand(
      "diagnose",
      "Collects settings, logs, state and versions, without secrets, in a zip for support");
  const auto options = std::make_shared<DiagnoseOptions>();
  command->add_option("-o,--output", options->file,
                      "The zip; default: a name made of machine and time, in this folder");
  command->add_flag("--force", options->force, "Replaces an existing file");
  command->add_flag("--no-connection-test", options->offline, "Skips the connection test");
  command->callback([options, &context, &chosen] {
    chosen = [options, &context] { return diagnose(context, *options); };
  });
}

}  // namespace korvane::agentctl
