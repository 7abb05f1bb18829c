// The destination against a carrier that a test scripts, on a clock that only waiting moves.
#include "logs/rpc_log_destination.h"

#include <algorithm>
#include <deque>

#include "agent/thread/stop_token.h"
#include "logs/event_notice.h"
#include "rpc/pipe_names.h"
#include "rpc/rpc_named_pipe.h"
#include "tests/logs/log_fixture.h"

namespace korvane::tests {
namespace {

class ScriptedCarrier : public RPCTransportBase {
 public:
  explicit ScriptedCarrier(platform::ManualClock& clock) : _clock(clock) {}

  // What the carrier does when a notice with this identifier has reached it.
  std::function<void(const std::string& id)> react;
  std::function<void()> idle = [] {};  // while the agent waits
  bool comesBack = true;
  bool administrator = true;
  bool takes = true;
  bool served = true;
  std::vector<std::string> received;
  std::vector<std::string> identifiers;
  int drops = 0;

  void says(const std::string& message) { _messages.push_back(message); }
  void sent(const std::string& id) {
    says(R"({"jsonrpc":"2.0","name":"RPC_EVENT_SENT","params":{"eventSendID":")" + id + "\"}}");
  }
  void acks(const std::string& id, const std::string& code = "0", const std::string& more = "") {
    says(R"({"jsonrpc":"2.0","name":"RPC_EVENT_ACK","params":{"eventAckID":")" + id +
         R"(","code":")" + code + "\"" + more + "}}");
  }
  void obeys(const std::string& id) { sent(id), acks(id); }
  void goes() {
    ++_connection;
    _messages.clear();
    _there = false;
  }
  void comesSilently() { _there = true; }
  void comes() {
    _there = true;
    says(R"({"jsonrpc":"2.0","id":1,"name":"attach"})");
  }

  bool start() override { return served; }
  RPCReceive receive(std::string& message, int waitMs) override {
    if (_interrupted) return RPCReceive::nothing;
    if (!_there && comesBack) comes();
    if (_messages.empty()) {
      _clock.advance(waitMs);
      idle();
      return RPCReceive::nothing;
    }
    message = _messages.front();
    _messages.pop_front();
    if (message == "(stalled)") return RPCReceive::stalled;
    return RPCReceive::message;
  }
  bool send(const std::string& message) override {
    if (message.find("RPC_EVENT_NOTICE") == std::string::npos) return true;
    if (!takes) return false;
    received.push_back(message);
    JsonTree tree;
    EXPECT_TRUE(parseJson(message, tree)) << message;
    identifiers.push_back(tree.get<std::string>("params.eventSendID"));
    react(identifiers.back());
    return true;
  }
  void drop() override { ++drops, goes(); }
  bool hasPeer() override { return _there; }
  bool peerIsAdministrator() override { return administrator; }
  uint64_t connection() const override { return _connection; }
  size_t messageBytes() const override { return 8u << 20; }
  uint32_t lastError() const override { return 5; }
  void interrupt() override { _interrupted = true; }

 private:
  platform::ManualClock& _clock;
  std::deque<std::string> _messages;
  bool _there = false;
  bool _interrupted = false;
  uint64_t _connection = 1;
};

class RpcLogDestinationTest : public LogFixture {
 protected:
  RpcLogDestinationTest() : LogFixture(/*serviceType=*/2) {
    carrier->react = [this](const std::string& id) { carrier->obeys(id); };
  }
  int write() { return destination.writeLog(batch); }
  size_t traces(const std::string& text) { return inOwnLog(text); }

  const Batch batch = {"PFIL,1", "PFIL,2"};
  std::unique_ptr<ScriptedCarrier> owned = std::make_unique<ScriptedCarrier>(fake.clock);
  ScriptedCarrier* carrier = owned.get();
  bool allowed = true;
  RpcLogDestination::Parts carrying(platform::Clock& clock) {
    return {clock, shutdownToken(), counters, [this] { return allowed; }};
  }
  RpcLogDestination destination{std::move(owned), carrying(fake.clock)};
};

using D = RpcLogDestination;
constexpr int64_t kSent = D::kSentSteps * D::kStepMs, kAck = D::kAckSteps * D::kStepMs;

TEST_F(RpcLogDestinationTest, EveryMisbehaviourLeavesTheBatchLetsTheCarrierGoAndIsReportedOnce) {
  using Id = const std::string&;
  ScriptedCarrier& c = *carrier;
  const char* const noSent = "Failed to receive event sent signal.";
  const char* const noAck = "Failed to receive event ACK signal.";
  const char* const mismatch = "eventSendID not match eventAckID";
  const struct {
    const char* what;
    std::function<void(Id)> react;
    int code;
    const char* trace;
    int64_t lasts;
    bool dropped = true;
  } cases[] = {
      {"silent", [](Id) {}, D::kNoSentSignal, noSent, kSent},
      {"no sent signal", [&](Id id) { c.acks(id); }, D::kNoSentSignal, noSent, kSent - D::kStepMs},
      {"no acknowledgement", [&](Id id) { c.sent(id); }, D::kNoAcknowledgement, noAck, kAck},
      {"sent another", [&](Id) { c.sent("x"); }, D::kOtherIdentifier, mismatch, 0},
      {"acknowledged another", [&](Id id) { c.sent(id), c.acks("x"); }, D::kOtherIdentifier,
       mismatch, 0},
      {"no identifier", [&](Id id) { c.sent(id), c.acks(""); }, D::kOtherIdentifier, mismatch, 0},
      {"no JSON", [&](Id) { c.says("{"); }, D::kNoSentSignal, noSent, 0},
      {"half a message", [&](Id) { c.says("(stalled)"); }, D::kNoSentSignal, noSent, 0},
      {"no code", [&](Id id) { c.sent(id), c.acks(id, ""); }, D::kNoAcknowledgement, noAck, 0},
      {"a negative code", [&](Id id) { c.sent(id), c.acks(id, "-5"); }, D::kNoAcknowledgement,
       noAck, 0},
      {"a bad delay", [&](Id id) { c.sent(id), c.acks(id, "429", R"(,"delay":"x")"); },
       D::kNoAcknowledgement, noAck, 0},
      {"goes unsent", [&](Id) { c.goes(); }, D::kNoSentSignal, noSent, 0, false},
      {"half a message later", [&](Id id) { c.sent(id), c.says("(stalled)"); },
       D::kNoAcknowledgement, noAck, 0},
      {"refuses", [&](Id id) { c.sent(id), c.acks(id, "500"); }, 500, nullptr, 0, false},
      {"junk", [&](Id) { c.idle = [&] { c.says(R"({"jsonrpc":"2.0","id":4,"name":"x"})"); }; },
       D::kNoSentSignal, noSent, 0},
  };
  size_t failures = 0, recoveries = 0;
  for (const auto& test : cases) {
    ASSERT_EQ(write(), 0) << test.what;
    EXPECT_EQ(events(10614), recoveries) << test.what;
    c.react = test.react;
    const size_t traced = test.trace ? traces(test.trace) : 0;
    const int64_t began = fake.clock.monotonicMs();
    const int drops = c.drops;
    EXPECT_EQ(write(), test.code) << test.what;
    EXPECT_EQ(write(), test.code) << test.what;
    EXPECT_EQ(c.drops - drops, test.dropped ? 2 : 0) << test.what;
    EXPECT_GE(fake.clock.monotonicMs() - began, 2 * test.lasts) << test.what;
    if (test.trace) {
      EXPECT_EQ(traces(test.trace), traced + 2) << test.what;
    }
    EXPECT_EQ(events(10612), ++failures) << test.what;
    ++recoveries;
    c.idle = [] {};
    c.react = [&](Id id) { c.obeys(id); };
  }
  EXPECT_EQ(write(), 0);
  std::sort(c.identifiers.begin(), c.identifiers.end());
  EXPECT_EQ(std::unique(c.identifiers.begin(), c.identifiers.end()), c.identifiers.end());
  EXPECT_EQ(counters.snapshot().forwarded, 2 * (1 + std::size(cases)));
}

TEST_F(RpcLogDestinationTest, AWordThatComesLateIsNeverTakenForAnAnswerToTheNextNotice) {
  carrier->react = [](const std::string&) {};
  EXPECT_EQ(write(), D::kNoSentSignal);
  const std::string late = carrier->identifiers.back();
  carrier->react = [&](const std::string& id) {
    if (id != late) carrier->obeys(late);
  };
  EXPECT_EQ(write(), D::kOtherIdentifier) << "said on a connection of its own, too";
  carrier->react = [&](const std::string& id) { carrier->obeys(id), carrier->acks(id); };
  EXPECT_EQ(write(), 0);
  EXPECT_EQ(write(), D::kOtherIdentifier) << "the second acknowledgement of the last one";
  EXPECT_EQ(write(), 0);
  carrier->react = [&](const std::string& id) {
    carrier->acks(id);
    carrier->idle = [this, id] { carrier->sent(id), carrier->idle = [] {}; };
  };
  carrier->says(R"({"jsonrpc":"2.0","id":7,"result":""})");
  destination.tend();
  destination.tend();
  EXPECT_EQ(write(), 0) << "the signals in the other order; what stood there before was heard";
}

TEST_F(RpcLogDestinationTest, ThrottlingAnswersHaveTheBatchSentAgainElevenTimesAtMost) {
  const char *const throttled = "VEXCX_REQUEST_THROTTLED", *const backedOff =
                                                               "VEXCX_REQUEST_THROTTLED_BACKEDOFF";
  const struct {
    const char* code;
    const char* more;
    int times;
    int returned;
    int64_t waited;  // in seconds
    int64_t delay;   // the last one traced, in milliseconds
  } cases[] = {
      {throttled, "", 3, 0, 1 + 2 + 4, 4000},
      {throttled, R"(,"delay":"250")", 4, 0, 1, 250},
      {backedOff, "", 3, 0, 10 + 20 + 40, 40000},
      {throttled, "", 1, 0, 1, 1000},
      {"430", R"(,"delay":"7000000")", 1, 0, 60, 60000},
      {"429", R"(,"delay":"-5")", 1, 0, 0, 0},
      {throttled, "", 11, 429, 1 + 2 + 4 + 8 + 16 + 32 + 4 * 60, 60000},
      {throttled, "", 1, 0, 60, 60000},
  };
  for (const auto& test : cases) {
    const int64_t began = fake.clock.monotonicMs();
    const size_t before = carrier->received.size();
    int left = test.times;
    carrier->react = [&](const std::string& id) {
      if (left-- > 0)
        carrier->acks(id, test.code, test.more);
      else
        carrier->obeys(id);
    };
    EXPECT_EQ(write(), test.returned);
    EXPECT_EQ(carrier->received.size() - before, size_t(std::min(test.times + 1, 11)));
    EXPECT_EQ((fake.clock.monotonicMs() - began) / 1000, test.waited) << test.times;
    EXPECT_GE(traces("delay: " + std::to_string(test.delay)), 1u);
  }
  EXPECT_EQ(traces("Receive VEXCX_REQUEST_THROTTLED. Receive code: 429"), 3u + 4 + 1 + 1 + 11 + 1);
  EXPECT_EQ(traces("Receive VEXCX_REQUEST_THROTTLED_BACKEDOFF. Receive code: 430"), 4u);
  EXPECT_EQ(events(10613), 1u);
  EXPECT_EQ(events(10614), 1u);
}

TEST_F(RpcLogDestinationTest, OnlyAnAdministratorsProgramBecomesTheCarrier) {
  carrier->administrator = false;
  int64_t came = 0;
  carrier->idle = [&] {
    if (carrier->drops < 3 || carrier->administrator) return;
    carrier->administrator = true;
    came = fake.clock.monotonicMs();
  };
  EXPECT_EQ(write(), 0);
  EXPECT_GE(carrier->drops, 3);
  EXPECT_LE(came, 10000) << "who is refused is soon gone";
  EXPECT_EQ(events(10615), 1u);
  EXPECT_EQ(carrier->identifiers.size(), 1u) << "and gets nothing";
}

TEST_F(RpcLogDestinationTest, EveryClientHasItsOwnTimeToAttach) {
  carrier->comesBack = false;
  const auto after = [&](int64_t milliseconds) {
    fake.clock.advance(milliseconds);
    destination.tend();
    return carrier->drops;
  };
  carrier->comesSilently();
  EXPECT_EQ(after(0), 0);
  EXPECT_EQ(after(EventChannel::kAttachMs - 1), 0);
  carrier->goes();
  carrier->comesSilently();
  EXPECT_EQ(after(1), 0);
  EXPECT_EQ(after(EventChannel::kAttachMs - 1), 0);
  EXPECT_EQ(after(1), 1);
}

TEST_F(RpcLogDestinationTest, AMissingCarrierAndAMissingPipeAreReportedOnceAndWaitedFor) {
  carrier->comesBack = false;
  const int64_t began = fake.clock.monotonicMs();
  carrier->idle = [&] {
    if (fake.clock.monotonicMs() - began > 3600000) carrier->comesBack = true;
  };
  EXPECT_EQ(write(), 0);
  EXPECT_EQ(events(10611), 1u);
  EXPECT_EQ(events(10614), 1u);
  EXPECT_EQ(counters.snapshot().lastError.code, D::kNoCarrier);
  carrier->served = false;
  destination.tend();
  destination.tend();
  EXPECT_EQ(events(10610), 1u);
  allowed = false;
  EXPECT_EQ(write(), D::kNotNow) << "the carrier is not waited for where nothing may go out";
}

// What a notice says, as pairs.
std::vector<PropertyList> eventsIn(const std::string& notice) {
  JsonTree tree;
  EXPECT_TRUE(parseJson(notice, tree));
  std::vector<PropertyList> records;
  for (const auto& [unnamed, event] : tree.get_child("params.events")) {
    records.emplace_back();
    for (const auto& [name, value] : event) records.back().emplace_back(name, value.data());
  }
  EXPECT_EQ(tree.get<size_t>("params.count"), records.size());
  return records;
}

TEST_F(RpcLogDestinationTest, ANoticeSaysWhatTheRecordsSayAndIsNeverLongerThanItsBound) {
  struct Keeping : LogDestination {
    int writeLog(const LogBatch& batch) override {
      notice = eventNotice(1, "id", batch);
      if (batch.records.size() < 10) {
        EXPECT_TRUE(eventsIn(notice) == pairsOf(batch));
      }
      return result;
    }
    RecordBytes recordBytes() const override { return eventNoticeBytes; }
    std::string notice;
    int result = 1;
  };
  setLimits(100000, 100000);
  fake.systemInfo.host = "a \"host\"\\";
  auto made = std::make_unique<Keeping>();
  Keeping& kept = *made;
  LogProcessor processor(HIDS_RT_LOG, parts(), std::move(made));
  fake.files.put(
      kLog,
      "PFIL,1,t,\"a \"\"quoted\"\" \\ text\",\x01\t\x1F\x7F/,gr\xC3\xBC\xC3\x9F\xF0\x9F\x98\x80\n" +
          eventLine(2, "x") + eventLine(3, "x") + eventLine(4));
  config().setConsolidateLogs(true);
  processor.readRecords();
  EXPECT_EQ(processor.writeRecords(), -1);
  for (int i = 5; i < 11; ++i)
    append(kLog, "PFIL," + std::to_string(i) + ",t," + std::string(kLineLimit - 40, '\x01') +
                     std::to_string(i) + "\n");
  for (int pass = 0; pass < 5; ++pass) {
    processor.readRecords();
    EXPECT_EQ(processor.writeRecords(), -1);
    EXPECT_LT(kept.notice.size(), LogProcessor::kQueueBytes + 6 * kLineLimit + 1000);
  }
  EXPECT_GT(kept.notice.size(), LogProcessor::kQueueBytes)
      << "a queue that cannot be sent grows no further";
  kept.result = 0;
  EXPECT_EQ(processor.writeRecords(), 8);
  EXPECT_EQ(processor.readRecords(), 2);
}

// On pipes, with a carrier that takes nothing: what does not fit waits until the stop.
TEST_F(RpcLogDestinationTest, AStopEndsTheWritingOfANoticeThatNobodyReads) {
  const auto clock = platform::makeNativeClock();
  auto pipe =
      std::make_unique<RPCNamedPipe>(fake.pipes, *clock, kEventPipe, RPCNamedPipe::Role::server);
  RpcLogDestination onPipe(std::move(pipe), carrying(*clock));
  Fifo client(fake.pipes, *clock, kEventPipe);
  onPipe.tend();
  ASSERT_TRUE(client.open());
  ASSERT_TRUE(client.writeMessage(R"({"jsonrpc":"2.0","id":1,"name":"attach"})", 0));
  onPipe.tend();
  const auto stopper = fake.platform().threading.createThread(0, [&] {
    std::string answer;
    client.readMessage(answer, 60000, 60000);
    EXPECT_EQ(answer, R"({"jsonrpc":"2.0","id":"1","result":{"attached":"true"}})");
    client.waitForData(60000);
    shutdownToken().request();
  });
  EXPECT_EQ(onPipe.writeLog(Batch{"PFIL," + std::string(1 << 20, 'x')}), D::kNotNow);
  stopper->join(platform::kInfinite);
}

TEST_F(RpcLogDestinationTest, AStopEndsEveryWait) {
  const std::function<void(const std::string&)> states[] = {
      [](const std::string&) {},
      [this](const std::string& id) { carrier->sent(id); },
      [this](const std::string& id) { carrier->acks(id, "430"); },
      {},  // no carrier
  };
  for (const auto& state : states) {
    shutdownToken().reset();
    auto transport = std::make_unique<ScriptedCarrier>(fake.clock);
    ScriptedCarrier& c = *transport;
    carrier = &c;
    c.comesBack = static_cast<bool>(state);
    c.react = state;
    c.idle = [] { shutdownToken().request(); };
    RpcLogDestination stopped(std::move(transport), carrying(fake.clock));
    const int64_t began = fake.clock.monotonicMs();
    EXPECT_EQ(stopped.writeLog(batch), D::kNotNow);
    EXPECT_LE(fake.clock.monotonicMs() - began, D::kPollMs);
  }
  EXPECT_EQ(events(10612), 0u);
}

}  // namespace
}  // namespace korvane::tests
