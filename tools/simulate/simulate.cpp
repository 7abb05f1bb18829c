// Runs episodes of the simulation and tells what was seen; script/simulate builds and starts it.
#include <CLI/CLI.hpp>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <mutex>
#include <thread>

#include "simulate/episode.h"

namespace {

using korvane::simulation::EpisodePlan;
using korvane::simulation::Outcome;

thread_local uint64_t seedOfThisThread = 0;

// A crash is a finding too.
void tellSeed(int signal) {
  std::fprintf(stderr, "seed %llu: the program died of signal %d\n",
               static_cast<unsigned long long>(seedOfThisThread), signal);
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

struct Sums {
  std::mutex lock;
  uint64_t episodes = 0, starts = 0, findings = 0, bad = 0;
  int64_t ms = 0;
  korvane::simulation::Counts faults;
  std::set<uint64_t> states;

  void add(const EpisodePlan& plan, const Outcome& outcome) {
    const std::lock_guard hold(lock);
    ++episodes;
    starts += outcome.starts;
    ms += outcome.ms;
    findings += outcome.findingCount;
    for (const auto& [kind, count] : outcome.faults) faults[kind] += count;
    states.insert(outcome.states.begin(), outcome.states.end());
    if (outcome.findingCount == 0) return;
    ++bad;
    std::cerr << "episode " << episodes << ", seed " << plan.seed << ": " << outcome.findingCount
              << " findings\n";
    for (const std::string& text : outcome.findings) std::cerr << "  " << text << "\n";
    if (plan.tells) std::cerr << outcome.log;
  }

  void print(double seconds) const {
    std::cerr << episodes << " episodes, " << static_cast<double>(ms) / 86400000 << " agent-days, "
              << starts << " starts, " << states.size() << " states seen, " << findings
              << " findings in " << bad << " episodes; " << seconds << " s\n";
    for (const auto& [kind, count] : faults) std::cerr << "  " << kind << ": " << count << "\n";
  }
};

}  // namespace

int main(int argc, char** argv) {
  uint64_t episodes = 300;
  EpisodePlan first;
  unsigned jobs = 1;
  bool untilFinding = false;
  CLI::App options("Lives of the agent with all that can befall one, drawn from seeds.");
  options.add_option("--episodes", episodes, "How many");
  options.add_option("--seed", first.seed, "The first one's seed; each further one has the next");
  options.add_option("--hours", first.mostHours, "The longest episode, simulated");
  options.add_option("--jobs", jobs, "How many at a time");
  options.add_flag("--tell", first.tells, "Tell what happens, and the agent's own log at the end");
  options.add_flag("--until-finding", untilFinding, "End after the first episode with findings");
  CLI11_PARSE(options, argc, argv);
  for (const int fatal : {SIGABRT, SIGSEGV, SIGBUS, SIGFPE}) std::signal(fatal, tellSeed);

  const auto begun = std::chrono::steady_clock::now();
  Sums sums;
  std::atomic<uint64_t> next{0};
  std::atomic<bool> enough{false};
  std::vector<std::thread> workers;
  for (unsigned job = 0; job < std::max(1u, jobs); ++job)
    workers.emplace_back([&] {
      for (uint64_t mine; !enough && (mine = next++) < episodes;) {
        EpisodePlan plan = first;
        plan.seed = seedOfThisThread = first.seed + mine;
        const Outcome outcome = runEpisode(plan);
        sums.add(plan, outcome);
        if (untilFinding && outcome.findingCount) enough = true;
      }
    });
  for (std::thread& worker : workers) worker.join();
  sums.print(std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count());
  return sums.findings ? 1 : 0;
}
