// korvane-server: the reference management server for development, tests and demos.
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>

#include "tools/server/server.h"

namespace korvane::server {

namespace {

struct CommandLine {
  ServerOptions server;
  std::string readyFile;
};

void declareOptions(CLI::App& app, CommandLine& line) {
  ServerOptions& options = line.server;
  app.add_option("--data", options.dataDirectory, "Folder of the database; created if missing")
      ->required();
  app.add_option("--cert", options.certificateFile, "Certificate chain, PEM")->required();
  app.add_option("--key", options.keyFile, "Its key, PEM")->required();
  app.add_option("--serve", options.servedDirectory,
                 "Folder of the files that can be assigned (default DATA/served)");
  app.add_option("--bind", options.addresses, "Addresses of the agent port (default 127.0.0.1)");
  app.add_option("--port", options.port, "Agent port, 0 for a free one");
  app.add_option("--admin-port", options.adminPort,
                 "Administration port on 127.0.0.1, 0 for a free one");
  app.add_option("--base-path", options.basePath,
                 "Path before the path word (default /korvane/agent/)");
  app.add_option("--ready-file", line.readyFile,
                 "File to write the ports to once everything listens");
  app.add_flag("--count-only", options.countOnly, "Count events but do not store their fields");
}

constexpr char kAdministration[] =
    R"(Administration: JSON over HTTP on 127.0.0.1, on the port that the ready line names as admin_port.
  GET  /state /agents /policy-state /results /requests /events /files /assignments   what arrived, what is assigned
  POST /assign    {"kind": KIND, "file": NAME, "agent": GUID, "properties": {...}, "until": "result", "notify": true}
                  KIND: config policy software policy.ids config.ids qel ferrolyn.revocation ferrolyn.settings
                  ferrolyn.vexvt application; NAME: a file of the served folder; without "agent": for every agent
  POST /notify    {"agent": GUID} or {"address": A, "port": N}, with "kinds": [KIND...] or "byte": N
  POST /misbehave {"word": "update", "kind": "error", "code": 200, "count": 1}: any error code, and other faults
docs/protocol.md has all of them.)";

// Written beside it first, so that a reader never sees half a line.
void writeReadyFile(const std::string& path, const std::string& line) {
  const std::string temporary = path + ".new";
  std::ofstream file(temporary);
  file << line << std::flush;
  if (!file) throw std::runtime_error("cannot write " + temporary);
  file.close();
  std::filesystem::rename(temporary, path);
}

int run(const CommandLine& line, const sigset_t& endingSignals) {
  Server server(line.server);
  server.start();
  const nlohmann::json ready = {{"program", "korvane-server"},
                                {"pid", getpid()},
                                {"port", server.port()},
                                {"admin_port", server.adminPort()},
                                {"url", "https://" + line.server.addresses.front() + ":" +
                                            std::to_string(server.port()) + line.server.basePath}};
  std::cout << ready.dump() << std::endl;
  if (!line.readyFile.empty()) writeReadyFile(line.readyFile, ready.dump() + "\n");
  int signal = 0;
  sigwait(&endingSignals, &signal);
  server.stop();
  return 0;
}

}  // namespace

}  // namespace korvane::server

int main(int argc, char** argv) {
  sigset_t endingSignals;
  sigemptyset(&endingSignals);
  sigaddset(&endingSignals, SIGTERM);
  sigaddset(&endingSignals, SIGINT);
  pthread_sigmask(SIG_BLOCK, &endingSignals, nullptr);
  signal(SIGPIPE, SIG_IGN);
  CLI::App app("korvane-server: reference management server for development, tests and demos");
  korvane::server::CommandLine line;
  korvane::server::declareOptions(app, line);
  app.footer(korvane::server::kAdministration);
  CLI11_PARSE(app, argc, argv);
  try {
    return korvane::server::run(line, endingSignals);
  } catch (const std::exception& error) {
    std::cerr << "korvane-server: " << error.what() << "\n";
    return 1;
  }
}
