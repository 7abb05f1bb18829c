// What the tests of the exchanges share: an agent of its own in a fresh directory, with a
// clock and name look-ups that the test controls, the agent's log to read, and a transport
// that plays a script.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "agent/thread/stop_token.h"
#include "comm/https_handler.h"
#include "comm/server_connection.h"
#include "config/agent_config.h"
#include "config/install_root.h"
#include "eventlog/event_log.h"
#include "eventlog/event_log_file.h"
#include "platform/fake/current_platform.h"
#include "platform/fake/forwarding.h"
#include "platform/fake/manual_clock.h"
#include "tests/support/temp_directory.h"

namespace korvane::tests {

// Resolves the names that the test gives it; "hang" hangs until release().
class TestResolver : public platform::ForwardingSockets {
 public:
  TestResolver(platform::Sockets& to, platform::Threading& threading)
      : ForwardingSockets(to),
        asked(threading.createEvent(true, false)),
        _released(threading.createEvent(true, false)) {}
  int resolve(const std::string& host, std::vector<std::string>& out) override {
    if (host == "hang") {
      asked->set();
      _released->wait(platform::kInfinite);
      return 11001;
    }
    if (host == "moving") out.push_back("10.0.0." + std::to_string(++_moves));
    if (host == "leaving" && !std::exchange(_left, true)) out.push_back("10.0.2.1");
    if (host == "steady") out.push_back("10.0.1.1");
    return out.empty() ? 11001 : 0;
  }
  void shutdownForeign(uint64_t socket) override {
    ++shut;
    ForwardingSockets::shutdownForeign(socket);
  }
  void release() { _released->set(); }

  const std::unique_ptr<platform::Event> asked;
  std::atomic<int> shut{0};  // sockets that a stop has shut

 private:
  const std::unique_ptr<platform::Event> _released;
  int _moves = 0;
  bool _left = false;
};

struct TestThreading : platform::ForwardingThreading {
  using ForwardingThreading::ForwardingThreading;
  std::unique_ptr<platform::NativeThread> createThread(uint32_t stack,
                                                       std::function<void()> body) override {
    return refuses ? nullptr : ForwardingThreading::createThread(stack, std::move(body));
  }
  bool refuses = false;
};

// Answers with its steps in order, then forever "EOF_FLAG" and status 200.
class ScriptedTransport : public Transport {
 public:
  struct Step {
    int code = 0;
    long status = 200;
    std::vector<std::string> headers{};
    std::string body = "EOF_FLAG\n";
    std::string errorText{};
    bool broken = false;
  };
  struct Seen {
    std::string url;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;
    long sslVersion;
    uint32_t connectTimeout;
    std::string caFile;
  };

  bool open() override { return _open = !refusesToOpen; }
  void close() override {
    _open = false;
    ++closed;
  }
  bool isOpen() const override { return _open; }
  int perform(const TransportRequest& request, TransportSink& sink,
              TransportResult& result) override {
    seen.push_back({request.url, request.headers, std::string(request.body), request.sslVersion,
                    request.connectTimeoutSeconds, request.caFile});
    Step step;
    if (!steps.empty()) {
      step = steps.front();
      steps.pop_front();
    }
    result.httpStatus = step.status;
    result.errorText = step.errorText;
    result.answerBroken = step.broken;
    for (const std::string& line : step.headers) sink.onHeader(line);
    sink.onBody(step.body);
    return step.code;
  }

  std::deque<Step> steps;
  std::vector<Seen> seen;
  bool refusesToOpen = false;
  int closed = 0;

 private:
  bool _open = false;
};

class CommFixture : public ::testing::Test {
 protected:
  CommFixture()
      : _native(platform::makeNativePlatform({})),
        threading(_native->platform().threading),
        resolver(_native->platform().sockets, _native->platform().threading),
        _platform{clock,
                  threading,
                  _native->platform().files,
                  _native->platform().registry,
                  _native->platform().devices,
                  _native->platform().processes,
                  resolver,
                  _native->platform().systemInfo,
                  _native->platform().sharedLibraries,
                  _native->platform().pipes,
                  _native->platform().rights} {
    setInstallRoot(_directory.path());
    std::filesystem::create_directories(path("IPS"));
    eventlog::EventLog::open({.directory = path("logs"), .cataloguePath = {}, .tracing = true},
                             _platform.files, clock);
    config().setURL("https://first.test:8443/agent/");
    config().setUniqueId("guid-1");
  }
  ~CommFixture() override { resolver.release(); }

  static AgentConfig& config() { return *AgentConfig::getInstance(); }
  platform::Platform& system() { return _platform; }
  // A connection test of the server in use, or of another one.
  static ConnectionReport test(const STRING& server = {}) {
    return currentConnection().test(currentConnection().target(server));
  }
  std::string path(const std::string& name) const { return _directory.path() + "/" + name; }
  std::string write(const std::string& name, const std::string& bytes) const {
    std::ofstream(tests::fsPath(path(name)), std::ios::binary) << bytes;
    return path(name);
  }

  // The transport of the process from now on; owned by the handlers.
  ScriptedTransport& script() {
    auto made = std::make_unique<ScriptedTransport>();
    ScriptedTransport& transport = *made;
    HttpsHandler::setTransport(std::move(made));
    return transport;
  }

  static std::string logText() {
    std::ifstream file(eventlog::currentFile(), std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
  }
  // How often a text stands in the agent's log.
  static int logged(const std::string& text) {
    int count = 0;
    const std::string all = logText();
    for (size_t at = all.find(text); at != std::string::npos; at = all.find(text, at + 1)) ++count;
    return count;
  }

  static std::string section(const std::string& format, const std::string& name,
                             const std::string& payload) {
    return "Data-Format=" + format + "\nData-Type=" + name +
           "\nData-Length=" + std::to_string(payload.size()) + "\n\n" + payload + "\n";
  }
  static std::string properties(const std::string& lines) {
    return section("text/plain", "properties", lines);
  }

 private:
  TempDirectory _directory;
  const std::unique_ptr<platform::NativePlatform> _native;

 protected:
  platform::ManualClock clock;
  TestThreading threading;
  TestResolver resolver;

 private:
  platform::Platform _platform;
  platform::CurrentPlatform _current{_platform};
};

}  // namespace korvane::tests
