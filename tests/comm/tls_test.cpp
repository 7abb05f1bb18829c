// The transport over libcurl against a real server on loopback, well-behaved and not.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "tests/comm/comm_fixture.h"
#include "tests/comm/hanging_resolver.h"
#include "tests/support/tls_server.h"

namespace korvane {
namespace {

using tests::CommFixture;
using tests::TestAuthority;
using tests::TlsServer;

class Tls : public CommFixture {
 protected:
  static void SetUpTestSuite() { authority = new TestAuthority; }
  static void TearDownTestSuite() { delete authority; }
  Tls() {
    config().setServerList("127.0.0.1");
    trust(*authority);
    config().setConnectionTimeout(20);
  }

  void trust(const TestAuthority& of) {
    config().setSSLCertFile(write("ca.pem", of.certificatePem()));
  }
  void use(const TlsServer& server) { usePort(server.port()); }
  void usePort(uint16_t port) {
    config().setURL("https://127.0.0.1:" + std::to_string(port) + "/agent/");
  }
  static TlsServer::Reply fine(const TlsServer::Request&) {
    return TlsServer::answer("EOF_FLAG\n");
  }
  static int log(const std::string& value) {
    return HttpsHandler().log(PropertyList{{"k", value}});
  }

  // Runs an exchange on a thread of its own, stops the agent once `busy` says that the exchange has
  // got where it hangs, and gives what the exchange returned.
  int stopDuring(const std::function<bool()>& busy) {
    int result = 0;
    std::thread exchange([&] { result = log("x"); });
    EXPECT_TRUE(busy());
    const auto asked = std::chrono::steady_clock::now();
    shutdownToken().request();
    exchange.join();
    const auto took = std::chrono::steady_clock::now() - asked;
    EXPECT_LT(took, std::chrono::seconds(2));
    RecordProperty("stop_us", static_cast<int>(took / std::chrono::microseconds(1)));
    return result;
  }

  static TestAuthority* authority;
};
TestAuthority* Tls::authority = nullptr;

TEST_F(Tls, OneHandshakeServesAllExchanges) {
  TlsServer server(*authority, &fine);
  use(server);
  HttpsHandler held;
  const std::string large(3 << 20, 'x');
  for (int i = 0; i < 20; ++i) EXPECT_EQ(log(std::to_string(i)), 0);
  EXPECT_EQ(held.testConnection(true), 0);
  EXPECT_EQ(log(large), 0);
  EXPECT_EQ(server.connections(), 1);
  const auto requests = server.requests();
  ASSERT_EQ(requests.size(), 22u);
  EXPECT_EQ(requests[7].path, "/agent/log");
  EXPECT_EQ(requests[7].body, properties("k=7\n") + "EOF_FLAG\n");
  EXPECT_EQ(requests[21].body, properties("k=" + large + "\n") + "EOF_FLAG\n");
  for (const TlsServer::Request& request : requests) {
    EXPECT_TRUE(request.headers.starts_with("POST /agent/")) << request.headers;
    EXPECT_NE(request.headers.find(" HTTP/1.1\r\nHost: 127.0.0.1:"), std::string::npos);
    EXPECT_EQ(request.header("Korvane-Format-Version"), "1.0");
    EXPECT_EQ(request.header("Content-Type"), "application/x-korvane");
    EXPECT_EQ(request.header("Korvane-Charset"), "");
    EXPECT_EQ(request.header("Expect"), "missing");
  }
  EXPECT_EQ(requests[7].header("Korvane-GUID"), "guid-1");
  EXPECT_EQ(requests[20].header("Korvane-GUID"), "missing");
}

// One exchange at a time is on the wire, whatever the number of threads.
TEST_F(Tls, ThreadsShareTheConnection) {
  TlsServer server(*authority, &fine);
  use(server);
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&, i] {
      HttpsHandler own;
      for (int round = 0; round < 10; ++round)
        failures += (i % 2 ? log("x") : own.testConnection(true)) != 0;
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failures, 0);
  EXPECT_EQ(server.requests().size(), 40u);
  EXPECT_EQ(server.connections(), 1);
}

TEST_F(Tls, AnswersInAllForms) {
  const std::string body = properties("agent.id=7\n") + "EOF_FLAG\n";
  const std::vector<TlsServer::Reply> replies{
      TlsServer::answer(body, "korvane-error: 0\r\n"),
      {"HTTP/1.1 100 Continue\r\nKorvane-Error: 9\r\n\r\n" + TlsServer::answer(body).bytes},
      {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\n" + body.substr(0, 5) + "\r\n" +
       "4c\r\n" + body.substr(5) + "\r\n0\r\nTrailer: x\r\n\r\n"},
      {"HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n" + body, TlsServer::Reply::Then::close},
  };
  ASSERT_EQ(body.size(), 5u + 0x4c);
  TlsServer server(*authority, [&](const TlsServer::Request& request) {
    return replies.at(static_cast<size_t>(request.number - 1));
  });
  use(server);
  for (size_t i = 0; i < replies.size(); ++i) {
    HttpsHandler handler;
    STRING guid;
    EXPECT_EQ(handler.registerAgent(nullptr, 0), 0) << i;
    EXPECT_EQ(handler.getGUID(guid), 0) << i;
    EXPECT_EQ(guid, STRING("7"));
  }
}

// Wherever the answer breaks off, the exchange has failed, nothing of it is used, and the
// log says so.
TEST_F(Tls, AnswerCutAtEveryByte) {
  const std::string body = properties("agent.id=7\n") + "EOF_FLAG\n";
  const std::string head = "HTTP/1.1 200 OK\r\nKorvane-Error: 0\r\n";
  TlsServer::Reply whole{};
  TlsServer server(*authority, [&](const TlsServer::Request& request) {
    const std::string& text = request.body;
    return TlsServer::cut(whole, std::stoul(text.substr(text.find("cut=") + 4)));
  });
  use(server);
  for (const bool lengthDeclared : {true, false}) {
    whole = {head +
             (lengthDeclared ? "Content-Length: " + std::to_string(body.size()) + "\r\n" : "") +
             "\r\n" + body};
    const size_t bodyAt = whole.bytes.size() - body.size();
    // Without a declared length an empty body is one, and the last line feed is no loss.
    for (size_t length = 0; length < whole.bytes.size(); ++length) {
      if (!lengthDeclared && (length == bodyAt || length == whole.bytes.size() - 1)) continue;
      HttpsHandler handler;
      STRING guid;
      const int events = logged(",10510,");
      const STRING cut = STRING::fromInt(static_cast<int64_t>(length));
      EXPECT_EQ(handler.setUpdateResult(1, PropertyList{{"cut", cut}}), 56) << length;
      EXPECT_EQ(handler.getGUID(guid), -1) << length;
      EXPECT_EQ(logged(",10510,"), events + 1) << length;
    }
  }
}

TEST_F(Tls, RefusedAnswers) {
  const auto unending = [](const std::string& line) {
    std::string bytes = "HTTP/1.1 200 OK\r\n";
    while (bytes.size() < (1 << 20)) bytes += line;
    return TlsServer::Reply{bytes, TlsServer::Reply::Then::hang};
  };
  const struct {
    TlsServer::Reply reply;
    int expected;
  } cases[] = {
      {unending("A: b\r\n"), 56},
      {unending("A: " + std::string(60000, 'x') + "\r\n"), 56},
      {unending("x"), 56},
      {{"HTTP/1.1 200 OK\r\n\r\n" + std::string((64 << 20) + 100, '\n'),
        TlsServer::Reply::Then::hang},
       56},
      {{"SSH-2.0-x\r\n\r\n", TlsServer::Reply::Then::close}, 56},
      {{"HTTP/1.1 200 OK\r\nContent-Length: -1\r\n\r\n", TlsServer::Reply::Then::close}, 56},
      {TlsServer::answer("Data-Format=text/xml\nData-Length=-1\n\n"), 56},
      {TlsServer::status(404, "<html>not ours</html>"), 404},
      {TlsServer::status(302), 302},
  };
  for (const auto& test : cases) {
    TlsServer server(*authority, [&](const TlsServer::Request&) { return test.reply; });
    use(server);
    EXPECT_EQ(log("x"), test.expected) << test.reply.bytes.substr(0, 60);
  }
  EXPECT_EQ(logged(",10510,"), 7);
}

// Whatever else libcurl could read or write under the URL, it is no server.
TEST_F(Tls, NothingButAnHttpAnswerOfAServerCounts) {
  write("register", properties("agent.id=7\n") + "EOF_FLAG\n");
  std::string folder = path("");
  std::replace(folder.begin(), folder.end(), '\\', '/');
  if (!folder.starts_with('/')) folder = "/" + folder;  // a drive's letter
  TlsServer server(*authority, [&](const TlsServer::Request&) {
    return TlsServer::Reply{"HTTP/1.1 302 Found\r\nLocation: file://" + folder + "register" +
                            "\r\nContent-Length: 0\r\n\r\n"};
  });
  const std::string at = "127.0.0.1:" + std::to_string(server.port()) + "/";
  for (const char* list : {"", "127.0.0.1"}) {
    for (const auto& [url, code] : {std::pair("file://" + folder, 1),
                                    {"FILE://localhost" + folder, 1},
                                    {"gopher://127.0.0.1:1/", 1},
                                    {"127.0.0.1:1/", 7},
                                    {"https://" + at, 302}}) {
      config().setServerList(list);
      config().setURL(STRING(url));
      HttpsHandler handler;
      STRING guid;
      EXPECT_EQ(handler.registerAgent(nullptr, 0), code) << url;
      EXPECT_EQ(handler.getGUID(guid), -1) << url;
      EXPECT_EQ(log("x"), code) << url;
      if (code < 100) {
        EXPECT_GE(logged("agent.http.url, \"\"" + url + "\"\","), 2) << url;
      }
    }
  }
  EXPECT_EQ(logged(",10219,"), 0);
}

TEST_F(Tls, CertificatesAreChecked) {
  {
    TlsServer server(*authority, &fine, {.certificate = tests::Certificate::expired});
    use(server);
    EXPECT_EQ(log("x"), 60);
  }
  TlsServer server(*authority, &fine);
  use(server);
  EXPECT_EQ(log("x"), 0);
  const TestAuthority other;
  trust(other);
  HttpsHandler early;
  HttpsHandler::curlCleanup();
  // A handler from before finds no handle; the next one makes it.
  EXPECT_EQ(early.log(PropertyList{{"a", "b"}}), -1);
  EXPECT_EQ(logged(",10224,"), 1);
  EXPECT_EQ(log("x"), 60);
  config().setSSLCertFile(path("none.pem"));
  EXPECT_EQ(log("x"), 77);
  EXPECT_EQ(server.requests().size(), 1u);
}

TEST_F(Tls, FallbackAfterARefusedHandshake) {
  TlsServer server(*authority, &fine, {.manner = TlsServer::Manner::dropFirstConnection});
  use(server);
  EXPECT_EQ(HttpsHandler().testConnection(true), 0);
  EXPECT_EQ(logged("SSL connection with TLS v1.2 failed. Retrying with TLS v1.x protocol") > 0,
            true);
  EXPECT_EQ(server.connections(), 2);
}

TEST_F(Tls, StopEndsAHangingHandshake) {
  TlsServer server(*authority, &fine, {.manner = TlsServer::Manner::hangInHandshake});
  use(server);
  EXPECT_EQ(stopDuring([&] { return server.waitUntilHeld(); }), 42);
}

TEST_F(Tls, StopEndsAnAnswerThatDoesNotCome) {
  for (size_t bytes : std::vector<size_t>{0, 30, 120}) {
    TlsServer server(*authority, [&](const TlsServer::Request&) {
      TlsServer::Reply reply = TlsServer::cut(TlsServer::answer(std::string(500, '\n')), bytes);
      reply.then = TlsServer::Reply::Then::hang;
      return reply;
    });
    use(server);
    EXPECT_EQ(stopDuring([&] { return server.waitUntilHeld(); }), 42) << bytes;
    shutdownToken().reset();
  }
}

// Also on the connection of earlier exchanges, and the agent can be started again in the
// same process.
TEST_F(Tls, StopOnAKeptConnectionAndStartAgain) {
  TlsServer server(*authority, [](const TlsServer::Request& request) {
    TlsServer::Reply reply = TlsServer::answer("EOF_FLAG\n");
    if (request.number == 2) reply = {"", TlsServer::Reply::Then::hang};
    return reply;
  });
  use(server);
  EXPECT_EQ(log("x"), 0);
  EXPECT_EQ(stopDuring([&] { return server.waitUntilHeld(); }), 42);
  EXPECT_EQ(server.connections(), 1);
  HttpsHandler::curlCleanup();
  shutdownToken().reset();
  EXPECT_EQ(log("x"), 0);
}

TEST_F(Tls, StopEndsAnUnreachableServer) {
  TlsServer server(*authority, &fine, {.manner = TlsServer::Manner::neverAccept});
  use(server);
  // libcurl is connecting, or about to.
  EXPECT_EQ(stopDuring([&] {
              for (int i = 0; i < 2000 && logged("Certificate Path") == 0; ++i)
                resolver.asked->wait(10);
              resolver.asked->wait(100);
              return logged("Certificate Path") > 0;
            }),
            42);
}

TEST_F(Tls, StopEndsALookUpOfLibcurl) {
  tests::HangingResolver names("name-that-hangs");
  TlsServer server(*authority, &fine);
  use(server);
  config().setServerList("name-that-hangs");
  EXPECT_EQ(stopDuring([&] { return names.waitUntilAsked(); }), 42);
}

}  // namespace
}  // namespace korvane
