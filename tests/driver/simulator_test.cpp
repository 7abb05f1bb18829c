// The simulator's behaviour on frames, without its sockets.
#include "driver-simulator/simulator.h"

#include <gtest/gtest.h>

#include "platform/fake/fake_platform.h"
#include "platform/simulator_frames.h"

namespace korvane::simulator {
namespace {

constexpr uint32_t kQuery = 0x80004018;

class SimulatorTest : public testing::Test {
 protected:
  bool ask(uint32_t number, uint32_t code = kQuery, uint32_t room = 1028) {
    return simulator.request(1, {1, number, code, room, {}}, now);
  }
  std::string command(const std::string& text) {
    const Frame answer = simulator.command({1, 1, kCommandCode, 4096, text});
    return std::to_string(answer.code) + " " + answer.payload;
  }
  // The errors of the answers that are due, by their kind: "4:0".
  std::string due() {
    std::string out;
    for (const Answer& answer : simulator.due(now))
      out += std::to_string(answer.frame.number) + "=" + std::to_string(answer.frame.kind) + ":" +
             std::to_string(answer.frame.code) + " ";
    return out;
  }

  platform::FakePlatform fake;
  DriverModel model{fake.platform()};
  Simulator simulator{model};
  int64_t now = 1000;
};

TEST_F(SimulatorTest, CommandsThatAreNotUnderstoodChangeNothing) {
  for (const char* text : {"", "delay", "delay x", "delay 1 2", "delay 3600001", "delay -1",
                           "stall now", "prevention", "prevention maybe", "late-error",
                           "late-error 1 2 3", "state now", "vanish now", "normal 0"}) {
    EXPECT_EQ(command(text).rfind("87 not understood", 0), 0u) << text;
    EXPECT_NE(
        command("state").find("\"mode\":\"normal\",\"name\":\"\",\"pending\":0,\"present\":true"),
        std::string::npos)
        << text;
  }
}

TEST_F(SimulatorTest, AnswersNeverExceedTheRoomThatTheRequestHas) {
  for (const uint32_t code : {kQuery, 0x80004024u, 0x8000402au, 0x8000400eu}) {
    ask(1, code, 10);
    const auto answers = simulator.due(now);
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_LE(answers[0].frame.payload.size(), 10u);
    EXPECT_EQ(answers[0].frame.code, code == 0x8000400eu ? 0u : 234u) << std::hex << code;
  }
}

TEST_F(SimulatorTest, FramesAreCutOutOfAnyPieces) {
  const std::string whole = encode({1, 2, kQuery, 4, "abc"}) + encode({2, 2, 0, 0, {}});
  FrameReader reader;
  std::vector<Frame> frames;
  for (const char c : whole) {
    reader.append({&c, 1});
    while (auto frame = reader.next()) frames.push_back(*frame);
  }
  ASSERT_EQ(frames.size(), 2u);
  EXPECT_EQ(frames[0].payload, "abc");
  EXPECT_EQ(frames[0].code, kQuery);
  FrameReader broken;
  broken.append(std::string("\x01\x00\x10\x00", 4) + std::string(16, '\0'));
  EXPECT_FALSE(broken.next());
  EXPECT_TRUE(broken.broken());
}

}  // namespace
}  // namespace korvane::simulator
