// An installation in a folder of its own, a reference server in this process, and the host program
// that runs the real agent library.
#pragma once

#include <gtest/gtest.h>
#include <httplib.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "tests/support/child_process.h"
#include "tests/support/temp_directory.h"
#include "tools/server/server.h"

namespace korvane::tests {

class InstalledAgent {
 public:
  explicit InstalledAgent(int serviceType = 1) {
    std::filesystem::create_directories(path("root/IPS"));
    std::filesystem::create_directories(path("root/IDS/bin"));
    std::filesystem::create_directories(path("run"));
    std::filesystem::permissions(path("run"), std::filesystem::perms::owner_all);
    write("registry.reg",
          "Windows Registry Editor Version 5.00\n\n"
          "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Dalvora\\Intrusion Security\\agent]\n\"AgentType\"=\"" +
              std::to_string(serviceType) + "\"\n");
  }

  ~InstalledAgent() {
    if (!_server) return;
    EXPECT_EQ(get("/state")["malformed"], 0) << get("/requests?limit=1000").dump();
  }

  std::string path(const std::string& name) const { return _directory.path() + "/" + name; }
  void write(const std::string& name, const std::string& text) const {
    std::ofstream(path(name)) << text;
  }

  void startServer() {
    server::ServerOptions options;
    options.dataDirectory = path("server");
    options.certificateFile = KORVANE_TEST_CERTS "/server.pem";
    options.keyFile = KORVANE_TEST_CERTS "/server.key";
    std::filesystem::create_directories(options.dataDirectory);
    _server = std::make_unique<server::Server>(options);
    _server->start();
    configure(_server->port());
  }
  // agent.ini for a server on that port, with tracing; libcurl's own trace goes to the
  // host's output.
  void configure(int port, const std::string& moreSettings = "") const {
    write("root/IPS/agent.ini",
          "[Agent]\nagent.http.url=https://127.0.0.1:" + std::to_string(port) +
              "/korvane/agent/\n[System]\nssl.trustStore=" KORVANE_TEST_CERTS
              "/ca.pem\n[AgentLog]\nagentlog.log.trace.messages=true\n" +
              moreSettings);
  }
  int serverPort() const { return _server->port(); }

  ChildProcess& start(const std::string& stopDeadline = "30") {
    host = std::make_unique<ChildProcess>(
        std::vector<std::string>{KORVANE_HOST, "run", "--install-root", path("root"), "--registry",
                                 path("registry.reg"), "--run-dir", path("run"), "--stop-deadline",
                                 stopDeadline, "--allow-unsafe"},  // a developer's tree may be his
        path("host.log"));
    return *host;
  }
  // Sends the signal and gives the milliseconds until the program has ended; -1 when it has not.
  int64_t stop(int& status) const {
    const auto before = std::chrono::steady_clock::now();
    host->signal(SIGTERM);
    if (!host->waitEnd(status)) return -1;
    return std::chrono::duration_cast<Milliseconds>(std::chrono::steady_clock::now() - before)
        .count();
  }

  // The text of the agent's own log.
  std::string log() const {
    std::string text;
    std::error_code none;
    for (const auto& file : std::filesystem::directory_iterator(path("root/IPS/logs"), none))
      text += contentOf(file.path());
    return text;
  }
  bool logged(const std::string& part) const {
    return eventually([&] { return log().find(part) != std::string::npos; });
  }

  nlohmann::json get(const std::string& where) const {
    const httplib::Result answer = admin().Get(where);
    return answer ? nlohmann::json::parse(answer->body) : nlohmann::json();
  }
  void command(const std::string& where, const nlohmann::json& body) const {
    admin().Post(where, body.dump(), "application/json");
  }
  void forget(const std::string& guid) const { admin().Delete("/agents/" + guid); }

  std::unique_ptr<ChildProcess> host;

 private:
  httplib::Client admin() const { return httplib::Client("127.0.0.1", _server->adminPort()); }

  TempDirectory _directory;
  std::unique_ptr<server::Server> _server;
};

}  // namespace korvane::tests
