// What every command works with: the global options, the system, the running agent, and
// where it is installed.
//
// Lifetime: one object per run; it sets the platform in use when it is first asked for. Threads:
// one.
// Errors: Failure.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "config/ini_files.h"
#include "platform/platform.h"
#include "rpc/rpc_client.h"

namespace korvane {
struct AgentSettings;
}

namespace korvane::agentctl {

struct GlobalOptions {
  std::string installRoot;
  std::string registry;
  std::string runDirectory;
  bool json = false;
};

class Context {
 public:
  // How long the agent has for an answer: longer than a client that says nothing may keep the pipe.
  static constexpr int kAnswerMs = 15000;

  GlobalOptions options;

  // The system as the options and the environment describe it.
  platform::Platform& system();
  // The agent's own files, InstallRoot/IPS; a Failure when nothing says where that is, or
  // it is not there.
  std::string installDirectory();
  // agent.ini and its companions in that directory.
  IniFiles iniFiles();
  // The settings store on them, loaded, which takes the lock file.
  std::unique_ptr<AgentSettings> openSettings();
  // A file of that directory.
  std::string installed(std::string_view name);

  // What the running agent answers to a method; a Failure when it does not run.
  JsonTree ask(const std::string& method, const JsonTree& params = {}, int timeoutMs = kAnswerMs);
  // The same, but nothing when no agent runs.
  std::optional<JsonTree> askIfRunning(const std::string& method, const JsonTree& params = {});
  // The whole answer of a method on a pipe, and that of one that answers in pieces.
  RPCResponse call(const std::string& pipe, const std::string& method, const JsonTree& params,
                   int timeoutMs);
  std::string askForPieces(const std::string& method);

 private:
  RPCClient& client(const std::string& pipe);
  // Linux: when nobody can have answered there, says so, once.
  void tellOfRunDirectory();

  std::unique_ptr<platform::NativePlatform> _native;
  std::optional<ProcessRunScope> _run;
  std::unique_ptr<RPCClient> _client;
  std::string _pipe;
  bool _toldOfRunDirectory = false;
};

}  // namespace korvane::agentctl
