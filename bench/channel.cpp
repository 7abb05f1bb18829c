// The local channel over the system's own pipe: round trips of getStatus, and a message of 4 MiB
// both ways with what it costs in memory on either side. Prints one JSON object.
//
//   channel [--calls N] [--large N] --run-dir DIR
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/peak_new.h"
#include "cloud/local_methods.h"
#include "comm/server_connection.h"
#include "config/agent_config.h"
#include "config/settings.h"
#include "discovery/app_data_requests.h"
#include "driver/driver.h"
#include "ledger/loss_ledger.h"
#include "logs/forwarding_counters.h"
#include "platform/native.h"
#include "platform/platform.h"
#include "platform/processes.h"
#include "platform/threading.h"
#include "rpc/rpc_client.h"
#include "rpc/rpc_named_pipe.h"
#include "util/ignore_result.h"

namespace korvane::bench {
namespace {

constexpr int kClient = 0, kServer = 1;
constexpr size_t kLargeBytes = 4u << 20;
constexpr int kLongMs = 120000;
constexpr char kPipe[] = "korvane-bench";

double nowMs() {
  return std::chrono::duration<double, std::milli>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

struct Times {
  std::vector<double> ms;
  double at(double share) {
    std::sort(ms.begin(), ms.end());
    return ms[std::min(ms.size() - 1, static_cast<size_t>(share * static_cast<double>(ms.size())))];
  }
};

// A body on a thread of its own, in the server's account; `interrupt` ends it.
class ServerThread {
 public:
  explicit ServerThread(std::function<void()> body)
      : _thread(platform::current().threading.createThread(0, [body = std::move(body)] {
          takeAccount(kServer);
          body();
        })) {}
  ~ServerThread() { _thread->join(platform::kInfinite); }

 private:
  std::unique_ptr<platform::NativeThread> _thread;
};

std::string largeText() {
  std::string text;
  while (text.size() < kLargeBytes - 200) text += "a line of what is to be told, with its end \n";
  return text;
}

double mebibytes(int64_t bytes) {
  return static_cast<double>(bytes) / (1 << 20);
}

struct Large {
  Times times;
  double serverPeak = 0, clientPeak = 0;  // MiB
};

// The text goes there as a parameter and comes back as application data.
Large largeCalls(RPCClient& client, int rounds) {
  Large measured;
  const std::string text = largeText();
  for (int i = 0; i < rounds; ++i) {
    JsonTree params;
    params.put("text", text);
    const int64_t server = bytesNow(kServer), other = bytesNow(kClient);
    resetPeak(kServer);
    resetPeak(kClient);
    const double start = nowMs();
    const RPCResponse answer = client.call("echo", std::move(params), kLongMs);
    measured.times.ms.push_back(nowMs() - start);
    if (answer.appdata != text) throw std::runtime_error("another answer");
    // What the caller had before counts too: its own text.
    measured.clientPeak = std::max(measured.clientPeak,
                                   mebibytes(peakBytes(kClient) - other) + mebibytes(kLargeBytes));
    measured.serverPeak = std::max(measured.serverPeak, mebibytes(peakBytes(kServer) - server));
  }
  return measured;
}

// What failed has no time.
void must(bool done, const char* fault) {
  if (!done) throw std::runtime_error(fault);
}

// The same bytes as frames alone.
Times largeFrames(int rounds) {
  platform::Platform& system = platform::current();
  Fifo server(system.pipes, system.clock, kPipe);
  Fifo client(system.pipes, system.clock, kPipe);
  must(server.create(), "the pipe cannot be made");
  Times times;
  const std::string text = largeText();
  {
    ServerThread serving([&] {
      std::string message;
      for (int i = 0; i < rounds; ++i)
        if (server.readMessage(message, kLongMs, kLongMs))
          must(server.writeMessage(message, kLongMs), "the answer did not go out");
      // Until the client has gone.
      ignoreResult(server.readMessage(message, 100, 100));
    });
    std::string answer;
    must(client.open(), "the pipe cannot be opened");
    for (int i = 0; i < rounds; ++i) {
      const double start = nowMs();
      must(client.writeMessage(text, kLongMs) && client.readMessage(answer, kLongMs, kLongMs),
           "a message did not come through");
      times.ms.push_back(nowMs() - start);
    }
  }
  return times;
}

void measure(int calls, int large) {
  platform::Platform& system = platform::current();
  AboutAgent about;
  about.techStatus = [&system] {
    return std::string("IPS Online\nIDS ") +
           (system.processes.isRunning("KAVIDSService.exe") ? "Online\n" : "Offline\n");
  };
  about.techNames = about.version = [] { return std::string("1.0"); };
  about.started = about.shuttingDown = [] { return false; };
  const Settings settings = settingsOf(*AgentConfig::getInstance());
  const ForwardingCounters counters(system.clock);
  const LossLedger ledger(system.files, system.clock);
  AppDataRequests requests;
  const LocalAppData applicationData{
      {settings.updates, settings.file}, requests, /*keepsResults=*/false};
  const LocalParts parts{system.files,    system.clock,    system.systemInfo,
                         settings.server, settings.policy, settings.logs,
                         settings.file,   currentDriver(), currentConnection(),
                         counters,        ledger,          applicationData};
  Times status;
  Large whole;
  {
    RPCNamedPipe transport(system.pipes, system.clock, kPipe, RPCNamedPipe::Role::server);
    RPCServer server(transport, system.clock);
    addLocalMethods(server, about, parts);
    server.add("echo", RPCServer::Access::everyone,
               [](const RPCRequest& request, RPCResponse& out) {
                 out.appdata = request.params.get_child("text").data();
                 out.datalen = static_cast<int64_t>(out.appdata->size());
               });
    must(transport.start(), "the pipe cannot be made");
    StopToken stop;
    ServerThread serving([&] { server.run(stop); });
    RPCClient client(system.pipes, system.clock, kPipe);
    for (int i = 0; i < calls; ++i) {
      const double start = nowMs();
      client.call("getStatus", {}, kLongMs);
      status.ms.push_back(nowMs() - start);
    }
    whole = largeCalls(client, large);
    stop.request();
  }
  Times frames = largeFrames(large);
  std::printf(
      "{\"calls\": %d, \"status_ms\": %.3f, \"status_p99_ms\": %.3f, \"status_max_ms\": %.3f, "
      "\"large_ms\": %.1f, \"large_frames_ms\": %.1f, \"large_server_mib\": %.2f, "
      "\"large_client_mib\": %.2f}\n",
      calls, status.at(0.5), status.at(0.99), status.at(1), whole.times.at(0.5), frames.at(0.5),
      whole.serverPeak, whole.clientPeak);
}

}  // namespace
}  // namespace korvane::bench

int main(int argc, char** argv) {
  CLI::App app("The local channel, measured");
  int calls = 1000, large = 5;
  std::string directory;
  app.add_option("--calls", calls);
  app.add_option("--large", large);
  app.add_option("--run-dir", directory)->required();
  CLI11_PARSE(app, argc, argv);
  const auto native = korvane::platform::makeNativePlatform({"", directory});
  const korvane::ProcessRunScope run(korvane::platform::makeRun(native->platform()));
  korvane::bench::measure(calls, large);
}
