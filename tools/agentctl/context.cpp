#include "agentctl/context.h"

#include <filesystem>
#include <utility>

#include "agentctl/failure.h"
#include "agentctl/output.h"
#include "config/agent_settings.h"
#include "config/install_root.h"
#include "platform/error_codes.h"
#include "platform/files.h"
#include "platform/native.h"
#include "platform/paths.h"
#include "platform/system_info.h"
#include "rpc/pipe_names.h"
#include "rpc/rpc_errors.h"

namespace korvane::agentctl {
namespace {

std::string fullPath(const std::string& path) {
  if (path.empty()) return path;
  const std::filesystem::path given(std::u8string(path.begin(), path.end()));
  const std::u8string full = std::filesystem::absolute(given).lexically_normal().u8string();
  return {full.begin(), full.end()};
}

Failure unreachable(const RPCUnreachable& error, const platform::Platform& system,
                    const std::string& runDirectory) {
  const bool socketsLieSomewhere = system.files.separator() == '/';
  switch (error.code()) {
    case platform::kErrorFileNotFound:
    case platform::kErrorPathNotFound:
      if (socketsLieSomewhere && runDirectory.empty())
        return {ExitStatus::notRunning,
                std::string(error.what()) + ": the run directory is not known",
                "Give the one the agent was started with: --run-dir or KORVANE_RUN_DIR."};
      return {ExitStatus::notRunning, error.what(),
              socketsLieSomewhere
                  ? "The agent is not running, or uses another --run-dir than " + runDirectory + "."
                  : "The agent is not running; `sc start KorvaneAgent` starts it."};
    case platform::kErrorAccessDenied:
      return {ExitStatus::notPermitted, error.what(),
              "Run this as the agent's account or as administrator. If you do, a program that is "
              "not the agent has made the pipe: find and end it."};
    case platform::kErrorPipeBusy:
      return {ExitStatus::failed, error.what(),
              "Another program on this machine is using the pipe; the agent disconnects it within "
              "a minute."};
    default:
      return {
          ExitStatus::failed, error.what(),
          "Another program may be using the pipe: try again. If it persists, restart the agent."};
  }
}

Failure refused(const RPCCallError& error) {
  switch (error.code()) {
    case kRpcNotAdministrator:
      return {ExitStatus::notPermitted, error.what(),
              "Run this as the agent's account or as administrator."};
    case kRpcMethodNotFound:
      return {ExitStatus::failed, error.what(),
              "`agentctl version` shows whether agent and agentctl match."};
    case kRpcInvalidParams:
      return {ExitStatus::failed, error.what(), "Nothing was changed."};
    default:
      return {ExitStatus::failed, error.what(),
              "`agentctl events tail` shows what the agent logged about it."};
  }
}

}  // namespace

platform::Platform& Context::system() {
  if (_native) return _native->platform();
  const auto environment = platform::makeNativeSystemInfo();
  const auto given = [&](std::string& option, const char* variable) {
    if (option.empty()) option = environment->environment(variable);
    option = fullPath(option);
  };
  given(options.installRoot, "KORVANE_INSTALL_ROOT");
  given(options.registry, "KORVANE_REGISTRY");
  given(options.runDirectory, "KORVANE_RUN_DIR");
  _native = platform::makeNativePlatform({options.registry, options.runDirectory});
  _run.emplace(platform::makeRun(_native->platform()));
  if (!options.installRoot.empty()) setInstallRoot(options.installRoot);
  return _native->platform();
}

std::string Context::installDirectory() {
  platform::Platform& platform = system();
  const std::string directory = korvane::installDirectory();
  if (directory.empty())
    throw Failure(
        ExitStatus::failed, "the agent's installation directory is not known",
        "Set it with --install-root, KORVANE_INSTALL_ROOT, or InstallRoot in the registry.");
  platform::FileInfo info;
  if (const int error = platform.files.info(directory, info); error != 0 || !info.isDirectory)
    throw Failure(
        ExitStatus::failed,
        "no agent is installed in " + korvane::installRoot() + ": " + directory +
            (error == 0 ? " is not a folder" : " cannot be opened, error " + std::to_string(error)),
        "Give the right directory with --install-root.");
  return directory;
}

IniFiles Context::iniFiles() {
  return {system().files, system().clock, installDirectory()};
}

std::unique_ptr<AgentSettings> Context::openSettings() {
  platform::Platform& platform = system();
  auto settings = std::make_unique<AgentSettings>(AgentSettings::Surroundings{
      {platform.files, platform.clock, platform.sharedLibraries, installDirectory(),
       /*subject=*/nullptr},
      platform.registry,
      platform.systemInfo});
  settings->open();
  return settings;
}

std::string Context::installed(std::string_view name) {
  const std::string directory = installDirectory();
  return platform::joinPath(system().files, {directory, name});
}

RPCClient& Context::client(const std::string& pipe) {
  if (!_client || _pipe != pipe) {
    platform::Platform& platform = system();
    _client = std::make_unique<RPCClient>(platform.pipes, platform.clock, pipe);
    _pipe = pipe;
  }
  return *_client;
}

RPCResponse Context::call(const std::string& pipe, const std::string& method,
                          const JsonTree& params, int timeoutMs) {
  try {
    return client(pipe).call(method, params, timeoutMs);
  } catch (const RPCUnreachable& error) {
    throw unreachable(error, system(), options.runDirectory);
  }
}

JsonTree Context::ask(const std::string& method, const JsonTree& params, int timeoutMs) {
  try {
    return call(kLocalPipe, method, params, timeoutMs).result;
  } catch (const RPCCallError& error) {
    throw refused(error);
  }
}

void Context::tellOfRunDirectory() {
  if (std::exchange(_toldOfRunDirectory, true) || system().files.separator() != '/') return;
  platform::FileInfo info;
  const std::string& directory = options.runDirectory;
  if (directory.empty())
    note(
        "the run directory is not known, so the agent is assumed to be stopped; give the one it "
        "was "
        "started "
        "with: --run-dir or KORVANE_RUN_DIR");
  else if (system().files.info(directory, info) != 0 || !info.isDirectory)
    note("the run directory " + directory +
         " is not a folder, so the agent is assumed to be stopped");
}

std::optional<JsonTree> Context::askIfRunning(const std::string& method, const JsonTree& params) {
  try {
    return ask(method, params);
  } catch (const Failure& failure) {
    if (failure.status() != ExitStatus::notRunning) throw;
    tellOfRunDirectory();
    return std::nullopt;
  }
}

std::string Context::askForPieces(const std::string& method) {
  try {
    return client(kLocalPipe).callAll(method, {}, kAnswerMs);
  } catch (const RPCUnreachable& error) {
    throw unreachable(error, system(), options.runDirectory);
  } catch (const RPCCallError& error) {
    throw refused(error);
  }
}

}  // namespace korvane::agentctl
