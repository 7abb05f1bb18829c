#include "platform/growing_buffer.h"

#include <gtest/gtest.h>

#include "platform/fake/seeded_random.h"

namespace korvane::platform {
namespace {

// Pieces of all sizes, against a text: across the step from small to large, to the bound and again.
TEST(GrowingBuffer, HoldsWhatWasAppendedUpToItsBound) {
  SeededRandom random(7);
  for (const size_t most :
       {size_t{0}, size_t{100}, size_t{65536}, size_t{65537}, size_t{3000001}}) {
    GrowingBuffer buffer(most);
    for (int round = 0; round < 3; ++round) {
      std::string expected;
      for (int i = 0; i < 300; ++i) {
        const size_t size = static_cast<size_t>(random.below(random.chance(50) ? 3 : 40000));
        const std::string piece(size, static_cast<char>('a' + i % 26));
        const bool fits = expected.size() + size <= most;
        ASSERT_EQ(buffer.append(piece), fits) << most;
        if (fits) expected += piece;
        ASSERT_EQ(buffer.size(), expected.size());
      }
      ASSERT_TRUE(buffer.append(std::string(most - expected.size(), 'z')));
      ASSERT_FALSE(buffer.append("z"));
      expected.resize(most, 'z');
      ASSERT_TRUE(buffer.view() == expected) << most;
      buffer.clear();
      ASSERT_EQ(buffer.view(), "");
    }
  }
}

}  // namespace
}  // namespace korvane::platform
