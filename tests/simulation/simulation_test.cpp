// Short episodes of the simulation, each of a seed of its own; script/simulate runs longer ones,
// and any number of them.
#include <gtest/gtest.h>

#include "simulate/episode.h"

namespace korvane::simulation {
namespace {

constexpr int kEpisodes = KORVANE_EPISODES, kBatches = 10;
constexpr double kHours = 0.5;

class Simulation : public testing::TestWithParam<int> {};

TEST_P(Simulation, FindsNothing) {
  for (int i = 0; i < kEpisodes / kBatches; ++i) {
    const auto seed = static_cast<uint64_t>(1 + i + GetParam() * kEpisodes / kBatches);
    const Outcome outcome = runEpisode({.seed = seed, .mostHours = kHours});
    for (const std::string& finding : outcome.findings) ADD_FAILURE() << finding;
  }
}
INSTANTIATE_TEST_SUITE_P(Batch, Simulation, testing::Range(0, kBatches));

TEST(Simulation, ASeedReplaysExactly) {
  for (uint64_t seed = 1; seed <= 5; ++seed) {
    const EpisodePlan plan{.seed = seed, .mostHours = kHours};
    const Outcome first = runEpisode(plan), second = runEpisode(plan);
    EXPECT_EQ(first.hash, second.hash) << seed;
    EXPECT_EQ(first.faults, second.faults) << seed;
  }
  EXPECT_NE(runEpisode({.seed = 1, .mostHours = kHours}).hash,
            runEpisode({.seed = 2, .mostHours = kHours}).hash);
}

}  // namespace
}  // namespace korvane::simulation
