// What every Pipes must do: the system's own, and the pipes in memory.
#include <gmock/gmock.h>

#include <random>

#include "platform/error_codes.h"
#include "platform/fake/fake_pipes.h"
#include "platform/native.h"
#include "tests/support/temp_directory.h"

namespace korvane::platform {
namespace {

constexpr uint32_t kStepMs = 100;
constexpr int kManySteps = 300;
constexpr size_t kFrame = 4096;

// What further clients get while one is served: a place to wait in, or nothing.
struct NativePipesWorld {
  static constexpr uint32_t kFurther = kOk;
  tests::TempDirectory directory;
  std::unique_ptr<Pipes> owned = makeNativePipes({"", directory.path()});
  Pipes& pipes = *owned;
  std::unique_ptr<Threading> threading = makeNativeThreading();
};

struct FakePipesWorld {
  static constexpr uint32_t kFurther = kErrorPipeBusy;
  std::unique_ptr<Threading> threading = makeNativeThreading();
  FakePipes pipes{*threading};
};

// Windows has one space of names for all processes.
std::string uniqueName() {
  static const std::string ofProcess = std::to_string(std::random_device()());
  static int count = 0;
  return "korvane-test-" + ofProcess + "-" + std::to_string(++count);
}

template <class World>
class PipesConformance : public testing::Test {
 protected:
  World world;
  Pipes& pipes = world.pipes;
  const std::string name = uniqueName();
  std::unique_ptr<Pipe> server, client;

  void connect() {
    ASSERT_EQ(pipes.create(name, PipeAudience::everyone, server), kOk);
    ASSERT_EQ(pipes.open(name, client), kOk);
  }

  // The first answer other than `passing`, or `passing` itself when it stays.
  static uint32_t settledPeek(Pipe& pipe, uint32_t passing, size_t& available) {
    uint32_t error = pipe.peek(available);
    for (int i = 0; i < kManySteps && error == passing && available == 0; ++i) {
      pipe.wait(PipeEvent::readable, kStepMs);
      error = pipe.peek(available);
    }
    return error;
  }
};

using PipesWorlds = testing::Types<NativePipesWorld, FakePipesWorld>;
TYPED_TEST_SUITE(PipesConformance, PipesWorlds);

TYPED_TEST(PipesConformance, namesAreServedOnceAndFoundUnderEitherSpelling) {
  std::unique_ptr<Pipe> other;
  EXPECT_EQ(this->pipes.open(this->name, this->client), kErrorFileNotFound);
  EXPECT_EQ(this->pipes.create("", PipeAudience::everyone, this->server), kErrorInvalidName);
  ASSERT_EQ(this->pipes.create("\\\\.\\pipe\\" + this->name, PipeAudience::everyone, this->server),
            kOk);
  EXPECT_EQ(this->pipes.create(this->name, PipeAudience::everyone, other), kErrorPipeBusy);
  EXPECT_EQ(this->pipes.open(this->name, this->client), kOk);
  this->server.reset();
  this->client.reset();
  EXPECT_EQ(this->pipes.open(this->name, this->client), kErrorFileNotFound);
  EXPECT_EQ(this->pipes.create(this->name, PipeAudience::everyone, this->server), kOk)
      << "the name is free again";
}

TYPED_TEST(PipesConformance, aServerWithoutAClientSaysSo) {
  size_t moved = 0;
  ASSERT_EQ(this->pipes.create(this->name, PipeAudience::everyone, this->server), kOk);
  EXPECT_EQ(this->server->peek(moved), kErrorBadPipe);
  EXPECT_EQ(this->server->write("x", 1, moved), kErrorPipeListening);
  EXPECT_EQ(this->server->wait(PipeEvent::readable, 1), PipeWait::ended);
}

TYPED_TEST(PipesConformance, bytesArriveInOrderAndWhatIsLeftIsReadAfterTheEnd) {
  this->connect();
  size_t moved = 0;
  char buffer[16];
  ASSERT_EQ(this->client->write("hello", 5, moved), kOk);
  EXPECT_EQ(moved, 5u);
  ASSERT_EQ(this->settledPeek(*this->server, kErrorBadPipe, moved), kOk);
  EXPECT_EQ(moved, 5u);
  ASSERT_EQ(this->server->read(buffer, 2, moved), kOk);
  EXPECT_EQ(std::string(buffer, moved), "he");
  EXPECT_TRUE(this->server->peerIsAdministrator()) << "this process's own account";
  ASSERT_EQ(this->server->write("x", 1, moved), kOk);
  this->client.reset();
  ASSERT_EQ(this->server->read(buffer, sizeof buffer, moved), kOk);
  EXPECT_EQ(std::string(buffer, moved), "llo");
  EXPECT_EQ(this->settledPeek(*this->server, kOk, moved), kErrorBrokenPipe);
  EXPECT_EQ(this->server->read(buffer, sizeof buffer, moved), kErrorBrokenPipe);
  EXPECT_EQ(this->server->write("x", 1, moved), kErrorNoData);
}

TYPED_TEST(PipesConformance, aRenewedServerTakesTheNextClientAndKeepsItsName) {
  this->connect();
  std::unique_ptr<Pipe> waiting, other;
  size_t moved = 0;
  char buffer[16];
  ASSERT_EQ(this->client->write("old", 3, moved), kOk);
  ASSERT_EQ(this->settledPeek(*this->server, kErrorBadPipe, moved), kOk);
  ASSERT_EQ(this->pipes.open(this->name, waiting), TypeParam::kFurther);
  if (waiting) {
    ASSERT_EQ(waiting->write("new", 3, moved), kOk) << "at once";
  }
  ASSERT_EQ(this->server->renew(), kOk);
  EXPECT_EQ(this->pipes.create(this->name, PipeAudience::everyone, other), kErrorPipeBusy);
  EXPECT_NE(this->settledPeek(*this->client, kOk, moved), kOk) << "it has been let go";
  if (!waiting) {
    ASSERT_EQ(this->pipes.open(this->name, waiting), kOk);
    ASSERT_EQ(waiting->write("new", 3, moved), kOk);
  }
  ASSERT_EQ(this->settledPeek(*this->server, kErrorBadPipe, moved), kOk);
  ASSERT_EQ(this->server->read(buffer, sizeof buffer, moved), kOk);
  EXPECT_EQ(std::string(buffer, moved), "new");
  EXPECT_NE(waiting->renew(), kOk) << "a client's end is none of a server";
}

TYPED_TEST(PipesConformance, aFullPipeTakesNothingUntilItIsRead) {
  this->connect();
  const std::string frame(kFrame, 'f');
  size_t moved = kFrame, frames = 0;
  for (; moved == kFrame && frames < 1000; ++frames)
    ASSERT_EQ(this->client->write(frame.data(), frame.size(), moved), kOk);
  EXPECT_EQ(moved, 0u) << "a frame is written whole or not at all";
  EXPECT_GT(frames, 16u) << "65536 bytes find room";
  EXPECT_EQ(this->client->wait(PipeEvent::writable, 1), PipeWait::ended);
  std::string buffer(kFrame, 0);
  size_t available = 0;
  while (this->server->peek(available) == kOk && available > 0)
    ASSERT_EQ(this->server->read(buffer.data(), buffer.size(), moved), kOk);
  ASSERT_EQ(this->client->write(frame.data(), frame.size(), moved), kOk);
  EXPECT_EQ(moved, kFrame);
}

TYPED_TEST(PipesConformance, anInterruptEndsWaitsForGood) {
  this->connect();
  const auto thread = this->world.threading->createThread(0, [this] { this->server->interrupt(); });
  while (this->server->wait(PipeEvent::readable, 1000) != PipeWait::interrupted) {
  }
  EXPECT_EQ(this->server->wait(PipeEvent::readable, kInfinite), PipeWait::interrupted);
  thread->join(kInfinite);
}

}  // namespace
}  // namespace korvane::platform
