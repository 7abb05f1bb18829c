#include "logs/https_log_destination.h"
#include "comm/server_connection.h"

#include "comm/https_handler.h"

#include "tests/logs/log_fixture.h"

namespace korvane::tests {
namespace {

// Answers every message with the code that the test sets.
class ScriptedTransport : public Transport {
 public:
  struct Script {
    int error = 0;     // the server's own code
    int transfer = 0;  // libcurl's
    std::vector<std::string> bodies;
  };
  explicit ScriptedTransport(Script& script) : _script(script) {}
  bool open() override { return _open = true; }
  void close() override { _open = false; }
  bool isOpen() const override { return _open; }
  int perform(const TransportRequest& request, TransportSink& sink,
              TransportResult& result) override {
    _script.bodies.emplace_back(request.body);
    if (_script.transfer) return _script.transfer;
    result.httpStatus = 200;
    sink.onHeader("HTTP/1.1 200 OK\r\n");
    sink.onHeader("Korvane-Error: " + std::to_string(_script.error) + "\r\n");
    sink.onHeader("Content-Length: 9\r\n");
    sink.onHeader("\r\n");
    sink.onBody("EOF_FLAG\n");
    return 0;
  }

 private:
  Script& _script;
  bool _open = false;
};

class HttpsLogDestinationTest : public LogFixture {
 protected:
  HttpsLogDestinationTest() {
    config().setURL("https://127.0.0.1:8443/agent/");
    config().setUniqueId("guid-1");
    HttpsHandler::setTransport(std::make_unique<ScriptedTransport>(script));
  }

  ScriptedTransport::Script script;
};

TEST_F(HttpsLogDestinationTest, JudgesTheServersAnswersAndReportsChangesOnce) {
  HttpsLogDestination destination(currentConnection(), settings().server, counters);
  const Batch batch = {"PFIL,1", "PFIL,2"};
  const struct {
    int error;
    int returned;
    size_t refused, recovered, dropped;
  } steps[] = {{0, 0, 0, 0, 0},   {302, 0, 0, 0, 1},   {302, 0, 0, 0, 1},   {0, 0, 0, 1, 1},
               {600, 0, 0, 1, 1}, {500, 500, 1, 1, 1}, {500, 500, 1, 1, 1}, {501, 501, 2, 1, 1},
               {302, 0, 2, 1, 2}, {0, 0, 2, 2, 2},     {0, 0, 2, 2, 2}};
  int step = 0;
  for (const auto& wanted : steps) {
    script.error = wanted.error;
    EXPECT_EQ(destination.writeLog(batch), wanted.returned) << step;
    EXPECT_EQ(events(10213), wanted.refused) << step;
    EXPECT_EQ(events(10214), wanted.recovered) << step;
    EXPECT_EQ(events(10227), wanted.dropped) << step;
    ++step;
  }
  const ForwardingCounts counts = counters.snapshot();
  EXPECT_EQ(counts.forwarded, 8u);
  EXPECT_EQ(counts.dropped, 8u);
  EXPECT_EQ(counts.lastError.code, 302);
  EXPECT_EQ(script.bodies.front(), FakeDestination::bodyOf(pairsOf(batch)));
}

TEST_F(HttpsLogDestinationTest, AFailedTransferIsReturnedAndTheRecordsComeAgainByteForByte) {
  config().setConsolidateLogs(true);
  fake.files.put(kLog, "XXX\n" + eventLine(1, "x") + eventLine(2, "x") + eventLine(3));
  LogProcessor processor(
      HIDS_RT_LOG, parts(),
      std::make_unique<HttpsLogDestination>(currentConnection(), settings().server, counters));
  processor.readRecords();
  script.transfer = 28;
  EXPECT_EQ(processor.writeRecords(), -28);
  script.transfer = 0;
  EXPECT_EQ(processor.writeRecords(), 3);
  ASSERT_EQ(script.bodies.size(), 2u);
  EXPECT_EQ(script.bodies[0], script.bodies[1]);
  const ForwardingCounts counts = counters.snapshot();
  EXPECT_EQ((std::vector<uint64_t>{counts.read, counts.folded, counts.rejected, counts.retried,
                                   counts.forwarded}),
            (std::vector<uint64_t>{3, 1, 1, 1, 3}));
  EXPECT_EQ(counts.lastError.code, 28);
  EXPECT_EQ(counts.lastError.wallMs, fake.clock.wallMs());
}

}  // namespace
}  // namespace korvane::tests
