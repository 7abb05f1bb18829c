// korvane-driver-sim: stands in for the kernel driver on Linux. It answers the agent's control
// requests over a Unix socket and enforces nothing.
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <string>
#include <vector>

#include "driver-simulator/driver_model.h"
#include "driver-simulator/server.h"
#include "driver-simulator/simulator.h"
#include "platform/driver_device.h"
#include "platform/error_codes.h"
#include "platform/files.h"
#include "platform/platform.h"

namespace {

using namespace korvane;

constexpr uint32_t kCommandTimeoutMs = 5000;
constexpr size_t kCommandReplyBytes = 4096;

int fail(const std::string& text) {
  std::cerr << "korvane-driver-sim: " << text << '\n';
  return 1;
}

// SIGTERM and SIGINT, as something that can be polled.
platform::Descriptor stopSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  return platform::Descriptor(::signalfd(-1, &signals, SFD_CLOEXEC));
}

int serve(const std::string& runDirectory, const std::string& registry, const std::string& policy) {
  const platform::Descriptor stop = stopSignals();
  if (!stop) return fail("the system provides no descriptor for signals");
  const auto native = platform::makeNativePlatform({registry, runDirectory});
  platform::Platform& system = native->platform();
  if (const int error = system.files.makeDirectories(runDirectory); error != 0)
    return fail(runDirectory + ": cannot be created, error " + std::to_string(error));
  simulator::DriverModel model(system);
  model.boot(policy);
  simulator::Simulator behaviour(model);
  simulator::Server server(runDirectory, behaviour, system.clock);
  std::string problem;
  if (!server.open(problem)) return fail(problem);
  std::cout << "korvane-driver-sim: a stand-in driver serves " << runDirectory << "/kavips.sock, "
            << (model.builtIn() ? "built-in policy" : "policy " + model.policyName()) << std::endl;
  server.run(stop.get());
  return 0;
}

int control(const std::string& runDirectory, const std::vector<std::string>& words) {
  std::string command;
  for (const std::string& word : words) command += (command.empty() ? "" : " ") + word;
  const auto native = platform::makeNativePlatform({"", runDirectory});
  std::unique_ptr<platform::Device> device;
  std::unique_ptr<platform::DeviceRequest> request;
  uint32_t error = native->platform().devices.open("\\\\.\\KAVIPS-CONTROL", device);
  if (error != 0)
    return fail("no simulator in " + runDirectory + ", error " + std::to_string(error));
  error = device->prepare(simulator::kCommandCode, std::as_bytes(std::span(command)),
                          kCommandReplyBytes, request);
  if (error == 0) error = request->issue();
  if (error == platform::kErrorIoPending)
    error = request->wait(kCommandTimeoutMs) == platform::DeviceWait::signalled
                ? request->result()
                : platform::kErrorOperationAborted;
  std::string text;
  for (const std::byte byte : request ? request->output() : std::span<const std::byte>())
    if (byte != std::byte{0}) text += static_cast<char>(byte);
  if (error != 0) return fail(text.empty() ? "error " + std::to_string(error) : text);
  std::cout << text << '\n';
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::string runDirectory;
  std::string registry;
  std::string policy;
  std::vector<std::string> words;
  CLI::App app("A stand-in for the kernel driver: it answers the agent and enforces nothing.");
  app.add_option("--run-dir", runDirectory, "folder of the sockets");
  app.add_option("--registry", registry, "the registry file that the agent uses");
  app.add_option("--policy", policy, "the policy to start with, instead of the recorded one");
  CLI::App* ctl = app.add_subcommand("ctl", "controls a running simulator");
  ctl->add_option("--run-dir", runDirectory, "folder of the sockets")->required();
  ctl->add_option("command", words,
                  "normal | stall | delay MS | late-error MS [ERROR] | fail ERROR | refuse [TEXT] "
                  "| vanish | "
                  "prevention on|off | state")
      ->required();
  CLI11_PARSE(app, argc, argv);
  if (ctl->parsed()) return control(runDirectory, words);
  if (runDirectory.empty()) return fail("--run-dir is missing");
  return serve(runDirectory, registry, policy);
}
