// korvane-event-carrier: stands in for the component that carries the events of an agent without a
// management server. Each thing that it does is a line of JSON; docs/event-channel.md describes it.
#include <CLI/CLI.hpp>
#include <csignal>
#include <iostream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

#include "event-carrier/carrier.h"
#include "platform/program_entry.h"
#include "rpc/pipe_names.h"
#include "util/errors.h"

namespace {

using namespace korvane;

volatile std::sig_atomic_t stopRequested = 0;
void requestStop(int) {
  stopRequested = 1;
}

std::string allFaults() {
  std::string names;
  for (const std::string& name : event_carrier::faultNames()) names += " " + name;
  return names;
}

void declare(CLI::App& app, event_carrier::Options& options, std::string& runDirectory) {
  app.add_option("--run-dir", runDirectory, "the agent's run directory (Linux)");
  app.add_option("--pipe", options.pipe, "the event pipe's name")->capture_default_str();
  app.add_option("--out", options.out,
                 "file to append a line per event to: its number, how many it stands for, its "
                 "notice");
  app.add_option("--notices", options.notices,
                 "exit after this many acknowledged notices; 0: run until a signal");
  app.add_option("--delay", options.delayMs,
                 "delay in milliseconds in throttling answers; default: none")
      ->check(CLI::NonNegativeNumber);
  app.add_option("--slow", options.slowMs, "milliseconds to wait before each signal to the agent");
  app.add_option("--fault", options.faults,
                 "fault for the next notice, or NAME*TIMES; repeat the option for the notices "
                 "that follow:" +
                     allFaults());
  app.add_option("--random", options.randomPercent,
                 "percentage of further notices with a random fault, except those that "
                 "keep the agent waiting for minutes")
      ->check(CLI::Range(0, 100));
  app.add_option("--seed", options.seed, "seed for --random");
}

}  // namespace

int korvane::programMain(const std::vector<std::string>& arguments) {
  event_carrier::Options options;
  options.pipe = kEventPipe;
  std::string runDirectory;
  CLI::App app("A stand-in for the event carrier.", "korvane-event-carrier");
  declare(app, options, runDirectory);
  try {
    app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
  } catch (const CLI::ParseError& error) {
    return app.exit(error);
  }
  std::signal(SIGTERM, requestStop);
  std::signal(SIGINT, requestStop);
  const auto system = platform::makeNativePlatform({"", runDirectory});
  try {
    event_carrier::Carrier(system->platform(), options, [] { return stopRequested != 0; }).run();
  } catch (const FileError& error) {
    std::cerr << "korvane-event-carrier: " << error.what() << '\n';
    return 1;
  } catch (const std::invalid_argument& error) {
    std::cerr << "korvane-event-carrier: " << error.what() << '\n';
    return 2;
  } catch (const nlohmann::json::exception& error) {
    std::cerr << "korvane-event-carrier: malformed notice: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
