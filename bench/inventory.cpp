// inventory - collects one inventory of this machine and prints what that took.
//
//   inventory --definition FILE --output FILE [--stop-after MS]
//
// One JSON object: seconds, CPU seconds of the process, rows, skips, the peak of its memory above what it had
// before, and, with --stop-after, how long the collection went on after the stop.
#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>

#include "discovery/inventory.h"
#include "platform/native.h"
#include "platform/platform.h"
#include "platform/survey.h"

namespace {

using Clock = std::chrono::steady_clock;

double seconds(Clock::duration time) {
  return std::chrono::duration<double>(time).count();
}

double cpuSeconds(const rusage& used) {
  const auto of = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  return of(used.ru_utime) + of(used.ru_stime);
}

// "VmRSS" or "VmHWM" of this process. What getrusage has as its peak is also the peak of who started it.
long memoryKib(const std::string& name) {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    if (word != name + ":") continue;
    long kib = 0;
    status >> kib;
    return kib;
  }
  return 0;
}

rusage usage() {
  rusage used{};
  ::getrusage(RUSAGE_SELF, &used);
  return used;
}

}  // namespace

int main(int argc, char** argv) {
  std::string definition, output;
  int stopAfterMs = -1;
  CLI::App options("collects one inventory of this machine");
  options.add_option("--definition", definition, "a definition of format 2")->required();
  options.add_option("--output", output)->required();
  options.add_option("--stop-after", stopAfterMs);
  CLI11_PARSE(options, argc, argv);

  const auto native = korvane::platform::makeNativePlatform({});
  const auto survey = korvane::platform::makeNativeSurvey();
  korvane::platform::Platform& platform = native->platform();
  korvane::Inventory inventory(platform.clock, platform.files, *survey);
  korvane::StopToken stop;
  stop.sleepFor(1);
  const long idle = memoryKib("VmRSS");
  const rusage before = usage();
  const auto began = Clock::now();
  Clock::time_point stopped = began;
  std::jthread stopper;
  if (stopAfterMs >= 0)
    stopper = std::jthread([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(stopAfterMs));
      stopped = Clock::now();
      stop.request();
    });
  const korvane::InventoryOutcome got = inventory.collect(stop, "", definition, output);
  const auto ended = Clock::now();
  if (stopper.joinable()) stopper.join();
  const rusage after = usage();
  const double wall = seconds(ended - began), cpu = cpuSeconds(after) - cpuSeconds(before);
  if (!got.error.empty()) std::fprintf(stderr, "%s\n", got.error.toUtf8().c_str());
  std::printf(
      "{\"seconds\": %.3f, \"cpu_seconds\": %.3f, \"share\": %.4f, \"rows\": %llu, \"skipped\": "
      "%llu, "
      "\"complete\": %s, \"peak_above_kib\": %ld, \"stop_ms\": %.1f}\n",
      wall, cpu, cpu / wall, static_cast<unsigned long long>(got.rows),
      static_cast<unsigned long long>(got.skipped), got.complete ? "true" : "false",
      memoryKib("VmHWM") - idle, got.stopped ? seconds(ended - stopped) * 1000 : 0.0);
  return got.error.empty() ? 0 : 1;
}
