// Messages over the pipes of the system and over those in memory, and what a pipe's every
// answer leads to.
#include "rpc/fifo.h"

#include <gmock/gmock.h>

#include <deque>

#include "platform/error_codes.h"
#include "tests/rpc/pipe_worlds.h"
#include "tests/support/logged_events.h"

namespace korvane {
namespace {

using namespace platform;
using ReadEnd = Fifo::ReadEnd;
using testing::HasSubstr;
using testing::Not;
using tests::kLongMs;

constexpr uint32_t kFrame = Fifo::kFrameBytes;

std::string frameOf(const std::string& head, uint32_t length, const std::string& bytes) {
  std::string frame = head;
  for (int i = 0; i < 4; ++i) frame += static_cast<char>(length >> (8 * i));
  frame += bytes;
  frame.resize(kFrame, 0);
  return frame;
}
const std::string kHead = "\xDE\xAD\xBE\xEF";

std::string patterned(size_t size) {
  std::string text(size, 0);
  for (size_t i = 0; i < size; ++i) text[i] = static_cast<char>('a' + i % 23);
  return text;
}

template <class World>
class FifoOnPipes : public testing::Test {
 protected:
  World world;
  std::unique_ptr<Clock> clock = makeNativeClock();
  std::unique_ptr<Threading> threading = makeNativeThreading();
  const std::string name = tests::uniquePipeName();
  Fifo server{world.pipes, *clock, name};
  Fifo client{world.pipes, *clock, "\\\\.\\pipe\\" + name};

  void connect() {
    ASSERT_TRUE(server.create());
    ASSERT_TRUE(client.open());
    ASSERT_TRUE(client.open()) << "it is open";
  }
  bool receive(Fifo& at, std::string& out) { return at.readMessage(out, kLongMs, kLongMs); }
};

TYPED_TEST_SUITE(FifoOnPipes, tests::PipeWorlds);

TYPED_TEST(FifoOnPipes, messagesOfEveryLengthAroundAFrameArriveWhole) {
  this->connect();
  std::string got;
  for (const size_t size : {0u, 1u, 4087u, 4088u, 4089u, 8184u, 8185u, 60000u}) {
    const std::string sent = patterned(size);
    ASSERT_TRUE(this->client.writeMessage(sent, 0)) << size;
    ASSERT_TRUE(this->receive(this->server, got)) << size;
    EXPECT_EQ(got, sent);
    ASSERT_TRUE(this->server.writeMessage(got, 0)) << size;
    ASSERT_TRUE(this->receive(this->client, got)) << size;
    EXPECT_EQ(got, sent);
  }
}

TYPED_TEST(FifoOnPipes, aClientThatGoesMakesRoomForTheNext) {
  std::string got;
  this->connect();
  const uint64_t first = this->server.connection();
  ASSERT_EQ(this->client.writeBytes("half", 4, 0), 4);
  this->client.close();
  EXPECT_FALSE(this->receive(this->server, got));
  EXPECT_EQ(this->server.lastRead(), ReadEnd::reset);
  EXPECT_NE(this->server.connection(), first);
  ASSERT_TRUE(this->client.open());
  ASSERT_TRUE(this->client.writeMessage("next", 0));
  ASSERT_TRUE(this->receive(this->server, got)) << "nothing of the first client is left";
  EXPECT_EQ(got, "next");
  this->server.close();
  EXPECT_FALSE(this->receive(this->client, got));
  EXPECT_FALSE(this->client.isOpen()) << "a client's end stays closed";
  EXPECT_FALSE(this->client.open());
}

TYPED_TEST(FifoOnPipes, anInterruptHoldsForEveryPipeToCome) {
  this->connect();
  std::string got;
  const auto other = this->threading->createThread(0, [&] { this->server.interrupt(); });
  EXPECT_FALSE(this->server.waitForData(60 * kLongMs));
  other->join(kInfinite);
  ASSERT_TRUE(this->server.create());
  EXPECT_FALSE(this->server.waitForData(60 * kLongMs));
  this->client.close();
  ASSERT_TRUE(this->client.open());
  ASSERT_EQ(this->client.writeBytes("x", 1, 0), 1);
  EXPECT_FALSE(this->server.readMessage(got, 60 * kLongMs, 60 * kLongMs));
  Fifo later{this->world.pipes, *this->clock, tests::uniquePipeName()};
  later.interrupt();
  ASSERT_TRUE(later.create());
  const int64_t begin = this->clock->monotonicMs();
  EXPECT_FALSE(later.waitForData(kLongMs));
  EXPECT_LT(this->clock->monotonicMs() - begin, kLongMs / 2) << "its first one too";
}

// A pipe that answers from a list, and whose waits let time pass at once.
class ScriptedPipes : public Pipes {
 public:
  struct Script {
    std::deque<uint32_t> peeks, writes;  // error numbers; kOk when there are no more
    std::string incoming, outgoing;
    size_t dripping = 0;  // bytes that a step lets in; 0: all are there
    size_t letIn = 0;
    int steps = 0, created = 0;
    uint32_t createError = kOk;
    bool full = false;
  };

  explicit ScriptedPipes(ManualClock& clock) : _clock(clock) {}
  uint32_t create(const std::string&, PipeAudience, std::unique_ptr<Pipe>& out) override {
    ++script.created;
    if (!script.createError) out = std::make_unique<End>(*this);
    return script.createError;
  }
  uint32_t open(const std::string& name, std::unique_ptr<Pipe>& out) override {
    return create(name, PipeAudience::everyone, out);
  }
  Script script;

 private:
  class End : public Pipe {
   public:
    explicit End(ScriptedPipes& of) : _s(of.script), _clock(of._clock) {}
    uint32_t peek(size_t& available) override {
      available = 0;
      if (const uint32_t error = next(_s.peeks)) return error;
      available = _s.dripping ? std::min(_s.letIn, _s.incoming.size()) : _s.incoming.size();
      return kOk;
    }
    uint32_t read(void* buffer, size_t size, size_t& got) override {
      got = _s.incoming.copy(static_cast<char*>(buffer), size);
      _s.incoming.erase(0, got);
      _s.letIn -= std::min(got, _s.letIn);
      return kOk;
    }
    uint32_t write(const void* bytes, size_t size, size_t& written) override {
      written = 0;
      if (const uint32_t error = next(_s.writes)) return error;
      if (_s.full) return kOk;
      _s.outgoing.append(static_cast<const char*>(bytes), size);
      written = size;
      return kOk;
    }
    PipeWait wait(PipeEvent, uint32_t timeoutMs) override {
      ++_s.steps;
      _s.letIn += _s.dripping;
      _clock.advance(timeoutMs);
      return PipeWait::ended;
    }
    bool peerIsAdministrator() override { return true; }
    uint32_t renew() override {
      ++_s.created;
      return _s.createError;
    }
    void interrupt() override {}

   private:
    static uint32_t next(std::deque<uint32_t>& errors) {
      if (errors.empty()) return kOk;
      const uint32_t error = errors.front();
      errors.pop_front();
      return error;
    }
    Script& _s;
    ManualClock& _clock;
  };
  ManualClock& _clock;
};

class FifoRules : public testing::Test {
 protected:
  FakePlatform fake;
  CurrentPlatform current{fake.platform()};
  LoggedEvents log{fake.files};
  ScriptedPipes pipes{fake.clock};
  ScriptedPipes::Script& script = pipes.script;
  Fifo fifo{pipes, fake.clock, "p", {100000, 30000}};
  std::string got;
  char buffer[kFrame];

  FifoRules() { fifo.create(); }
};

TEST_F(FifoRules, framesAreFilledUpWithZeros) {
  ASSERT_TRUE(fifo.writeMessage("", 0));
  EXPECT_EQ(script.outgoing, frameOf(kHead, 0, ""));
  script.outgoing.clear();
  const std::string sent = patterned(4089);
  ASSERT_TRUE(fifo.writeMessage(sent, 0));
  EXPECT_EQ(script.outgoing,
            frameOf(kHead, 4089, sent.substr(0, 4088)) + frameOf(sent.substr(4088), 0, ""));
  EXPECT_FALSE(fifo.writeMessage(std::string(100001, 'x'), 0));
}

TEST_F(FifoRules, whatDoesNotBeginAMessageIsPassedOver) {
  script.incoming = frameOf("\xDE\xAD\xBE\xEE", 3, "not") + frameOf(kHead, 3, "yes, longer");
  ASSERT_TRUE(fifo.readMessage(got, 0, 0));
  EXPECT_EQ(got, "yes") << "the length cuts";
  EXPECT_EQ(script.steps, 0) << "what is there is never slept on";
  script.incoming = std::string(kFrame, 'j');
  EXPECT_FALSE(fifo.readMessage(got, 100, 100));
  EXPECT_EQ(fifo.lastRead(), ReadEnd::nothing);
}

TEST_F(FifoRules, aLengthAboveTheLimitIsRefusedAndTheNextMessageIsRead) {
  script.incoming = frameOf(kHead, 100000, "x") + std::string(24 * kFrame, 'j');
  EXPECT_TRUE(fifo.readMessage(got, 0, 0)) << "as long as may be";
  EXPECT_EQ(got.size(), 100000u);
  for (const uint32_t length : {100001u, 0xFFFFFFFFu}) {
    script.incoming =
        frameOf(kHead, length, "x") + std::string(kFrame, 'j') + frameOf(kHead, 2, "ok");
    EXPECT_FALSE(fifo.readMessage(got, 0, 0));
    EXPECT_EQ(fifo.lastRead(), ReadEnd::tooLong);
    EXPECT_LT(got.capacity(), 200000u);
    EXPECT_TRUE(fifo.readMessage(got, 0, 0));
    EXPECT_EQ(got, "ok");
  }
}

TEST_F(FifoRules, timeOutsAreToldWithTheTimeThatPassed) {
  script.incoming = "part";
  EXPECT_EQ(fifo.readBytes(buffer, 8, 200), Fifo::kTimeout);
  EXPECT_THAT(log.text(), HasSubstr("RPC Read timeout : 300"));
  script.incoming = "of it";
  EXPECT_EQ(fifo.readBytes(buffer, 8, 0), 8) << "what had come before is kept";
  EXPECT_EQ(std::string(buffer, 8), "partof i");
  script.full = true;
  EXPECT_EQ(fifo.writeBytes("x", 1, 200), Fifo::kTimeout);
  EXPECT_THAT(log.text(), HasSubstr("RPC Write timeout : 300"));
}

TEST_F(FifoRules, aDrippingPeerCannotHoldAMessageOpen) {
  const struct {
    size_t bytesAStep;
    std::string incoming;
  } cases[] = {
      {1, frameOf(kHead, 90000, "x")},
      // A frame comes within a second or two, the whole message does not come within 30.
      {kFrame / 16, frameOf(kHead, 99000, "x") + std::string(99000, 'j')},
  };
  for (const auto& c : cases) {
    fifo.create();
    script.dripping = c.bytesAStep;
    script.incoming = c.incoming;
    const int64_t start = fake.clock.monotonicMs();
    EXPECT_FALSE(fifo.readMessage(got, 5000, 5000));
    EXPECT_EQ(fifo.lastRead(), ReadEnd::stalled);
    EXPECT_LE(fake.clock.monotonicMs() - start, 36000);
  }
}

// Two frames, of which the second is whole with the last step in time, or with the first
// one too late.
TEST_F(FifoRules, aFrameBehindTheDeadlineEndsTheMessage) {
  for (const bool inTime : {true, false}) {
    Fifo hasty(pipes, fake.clock, "p", {100000, 1000});
    hasty.create();
    script.letIn = 0;
    script.dripping = inTime ? 2 * kFrame / 11 + 1 : 2 * kFrame / 12 + 1;
    script.incoming = frameOf(kHead, 5000, "x") + std::string(kFrame, 'j');
    EXPECT_EQ(hasty.readMessage(got, 5000, 5000), inTime);
    EXPECT_EQ(hasty.lastRead(), inTime ? ReadEnd::message : ReadEnd::stalled);
  }
}

// Frames that begin no message are skipped, but no call goes on with them for longer than it may
// wait.
TEST_F(FifoRules, framesThatBeginNothingHoldNoCallOpen) {
  for (const auto& [waitMs, most] : {std::pair(0, 1400), {500, 1400}, {5000, 5400}}) {
    fifo.create();
    script.dripping = kFrame / 3 + 1;  // a frame in 300 ms
    script.incoming = std::string(100 * kFrame, 'j');
    const int64_t start = fake.clock.monotonicMs();
    EXPECT_FALSE(fifo.readMessage(got, waitMs, 2000));
    EXPECT_EQ(fifo.lastRead(), ReadEnd::nothing);
    EXPECT_LE(fake.clock.monotonicMs() - start, most) << waitMs;
    script.incoming = std::string(kFrame, 'j') + frameOf(kHead, 2, "ok");
    script.dripping = 0;
    EXPECT_TRUE(fifo.readMessage(got, 0, 0)) << "the next call goes on";
    EXPECT_EQ(got, "ok");
  }
}

TEST_F(FifoRules, everyErrorOfThePipe) {
  enum class Then { goesOn, resets, fails, ends };
  const struct {
    uint32_t error;
    Then waiting, reading, writing;
  } cases[] = {
      {kErrorInvalidHandle, Then::ends, Then::fails, Then::fails},
      {kErrorBrokenPipe, Then::resets, Then::resets, Then::resets},
      {kErrorNoData, Then::resets, Then::resets, Then::resets},
      {kErrorPipeNotConnected, Then::resets, Then::resets, Then::resets},
      {kErrorPipeBusy, Then::goesOn, Then::goesOn, Then::goesOn},
      {kErrorPipeListening, Then::goesOn, Then::goesOn, Then::goesOn},
      {kErrorBadPipe, Then::goesOn, Then::fails, Then::fails},
      {kErrorGenFailure, Then::goesOn, Then::fails, Then::fails},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.error);
    const auto once = [&](std::deque<uint32_t>& errors, auto call) {
      errors = {c.error};
      script.created = 0;
      script.incoming = "y";
      const int result = call();
      errors.clear();
      return std::pair(result, script.created);
    };
    const auto byteResult = [](Then then) { return then == Then::goesOn ? 1 : Fifo::kPipeFailure; };
    const auto made = [](Then then) { return then == Then::resets ? 1 : 0; };
    EXPECT_EQ(once(script.peeks, [&] { return int{fifo.waitForData(1000)}; }),
              std::pair(int{c.waiting != Then::ends}, made(c.waiting)));
    EXPECT_EQ(once(script.peeks, [&] { return fifo.readBytes(buffer, 1, 1000); }),
              std::pair(byteResult(c.reading), made(c.reading)));
    EXPECT_EQ(once(script.writes, [&] { return fifo.writeBytes("x", 1, 1000); }),
              std::pair(byteResult(c.writing), made(c.writing)));
  }
  const std::string all = log.text();
  for (const char* text : {"Peek Pipe [p] error = [6]", "RPC Read PeekNamedPipe error: 31",
                           "RPC WriteFile error: 536", "Pipe was reset"})
    EXPECT_THAT(all, HasSubstr(text));
  EXPECT_THAT(all, Not(HasSubstr("Peek Pipe [p] error = [109]")));
}

TEST_F(FifoRules, aPipeThatCannotBeMadeAnewEndsTheWaits) {
  script.peeks = {kErrorBrokenPipe};
  script.createError = kErrorPipeBusy;
  EXPECT_FALSE(fifo.waitForData(60000));
  EXPECT_FALSE(fifo.isOpen());
  EXPECT_EQ(fifo.lastError(), kErrorPipeBusy);
  EXPECT_EQ(fifo.readBytes(buffer, 1, 60000), Fifo::kPipeFailure);
  EXPECT_FALSE(fifo.writeMessage("x", 60000));
  EXPECT_EQ(script.steps, 0);
  script.created = 0;
  Fifo nameless(pipes, fake.clock, "");
  EXPECT_FALSE(nameless.create());
  EXPECT_EQ(script.created, 0);
}

}  // namespace
}  // namespace korvane
