// A zoo of broken servers: for each of them the connection test and the event of an exchange must
// name the stage and the cause that stand in connection_zoo.txt.
#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include <fstream>
#include <map>
#include <regex>
#include <thread>

#include "comm/curl_transport.h"
#include "comm/failure_cause.h"
#include "tests/comm/comm_fixture.h"
#include "tests/comm/hanging_resolver.h"
#include "tests/support/tls_server.h"

namespace korvane {
namespace {

using tests::Certificate;
using tests::CommFixture;
using tests::TestAuthority;
using tests::TlsServer;
using Manner = TlsServer::Manner;
using Then = TlsServer::Reply::Then;

constexpr uint32_t kShortMs = 1000;
constexpr uint32_t kLongMs = 30'000;

// libcurl with a shorter time for the whole transfer.
class HastyTransport : public CurlTransport {
 public:
  HastyTransport(const Parts& parts, uint32_t totalMs) : CurlTransport(parts), _totalMs(totalMs) {}
  int perform(const TransportRequest& request, TransportSink& sink,
              TransportResult& result) override {
    TransportRequest hasty = request;
    hasty.totalTimeoutMs = _totalMs;
    return CurlTransport::perform(hasty, sink, result);
  }

 private:
  const uint32_t _totalMs;
};

struct Animal {
  const char* name;
  TlsServer::Reply reply{};
  TlsServer::Options options{};
  uint32_t patienceMs = kLongMs;
};

// The blocks of connection_zoo.txt by their names: "[name]", then lines.
std::map<std::string, std::string> readGolden() {
  std::map<std::string, std::string> blocks;
  std::ifstream file(KORVANE_ZOO);
  std::string* block = nullptr;
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with('['))
      block = &blocks[line.substr(1, line.find(']') - 1)];
    else if (block)
      *block += line + "\n";
  }
  return blocks;
}

std::string get(const std::string& statusAndHeaders, const std::string& body = {}) {
  return "HTTP/1.1 " + statusAndHeaders + "\r\nContent-Length: " + std::to_string(body.size()) +
         "\r\n\r\n" + body;
}

class Zoo : public CommFixture {
 protected:
  static void SetUpTestSuite() { authority = new TestAuthority; }
  static void TearDownTestSuite() { delete authority; }
  Zoo() {
    config().setServerList("127.0.0.1");
    config().setSSLCertFile(write("ca.pem", authority->certificatePem()));
  }

  // What differs from run to run is masked.
  std::string masked(std::string text, const std::string& port) const {
    const auto replace = [&text](const std::string& what, const char* with) {
      for (size_t at = 0; (at = text.find(what, at)) != std::string::npos;)
        text.replace(at, what.size(), with);
    };
    replace(path(""), "DIR/");
    text = std::regex_replace(text, std::regex("within (300|2) s"), "within 1 s");
    text = std::regex_replace(text, std::regex("\\d+ bytes of its body so far"),
                              "N bytes of its body so far");
    if (!port.empty()) replace(port, "PORT");
    text = std::regex_replace(text, std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ)"), "DATE");
    text = std::regex_replace(text, std::regex(R"(\s*\b\d+ ms)"), " N ms");
    return std::regex_replace(text, std::regex("authority \\d+"), "authority N");
  }

  // The last event of an exchange: its number and insertions.
  static std::vector<std::string> lastEvent() {
    std::string found;
    std::istringstream lines(logText());
    for (std::string line; std::getline(lines, line);) {
      if (std::regex_search(line, std::regex(",(10219|10221|10222|10223|10510),"))) found = line;
    }
    std::vector<std::string> fields(1);
    bool inside = false;
    for (const char c : found) {
      if (c == '"') inside = !inside;
      if (c == '"' && inside && !fields.back().empty()) fields.back() += c;  // a doubled one
      if (c == ',' && !inside) fields.emplace_back();
      if (c != '"' && (c != ',' || inside)) fields.back() += c;
    }
    std::vector<std::string> event{fields.at(3)};
    event.insert(event.end(), fields.begin() + 8, fields.end());
    return event;
  }

  // Both ways to the server that the settings name.
  void expectGolden(const char* name, uint32_t patienceMs, const std::string& port) {
    SCOPED_TRACE(name);
    HttpsHandler::setTransport(std::make_unique<HastyTransport>(
        CurlTransport::Parts{clock, resolver, shutdownToken()}, patienceMs));
    ConnectionTarget target = currentConnection().target();
    target.totalTimeoutMs = patienceMs;
    const ConnectionReport report = currentConnection().test(target);
    EXPECT_EQ(report.ok, report.cause.empty());
    EXPECT_EQ(report.stages.back().ok, report.ok);
    EXPECT_LT(report.milliseconds, kLongMs);
    std::string seen =
        report.ok ? "works\n"
                  : report.failingStage + ": " + report.cause + "\n> " + report.nextStep + "\n";
    HttpsHandler().log(PropertyList{{"k", "v"}});
    std::vector<std::string> event = lastEvent();
    const bool answered = event[0] == "10219";
    if (!answered && event.size() > 2) {
      EXPECT_EQ(masked(event.back(), port), masked(report.cause, port));
      EXPECT_EQ(event[event.size() - 2], report.failingStage);
      event.resize(event.size() - 2);
    }
    const bool objected = report.failingStage == stageName(ConnectionStage::serverAnswer);
    EXPECT_EQ(currentConnection().record().last().ok, answered && !objected);
    if (!answered || objected) {
      EXPECT_EQ(masked(currentConnection().record().last().text, port),
                masked(report.failingStage + ": " + report.cause, port));
    }
    for (const std::string& part : event) seen += (&part == &event.front() ? "" : " ") + part;
    seen += "\n";
    EXPECT_EQ(masked(seen, port), golden[name]);
  }

  void expectGolden(const Animal& animal) {
    if (animal.reply.then == Then::reset && !KORVANE_ZOO_RESETS) return;
    TlsServer server(
        *authority, [&](const TlsServer::Request&) { return animal.reply; }, animal.options);
    const std::string port = std::to_string(server.port());
    config().setURL(STRING(scheme + "://127.0.0.1:" + port + "/agent/"));
    config().setConnectionTimeout(animal.patienceMs / 1000);
    expectGolden(animal.name, animal.patienceMs, port);
    HttpsHandler::curlCleanup();
  }

  static TestAuthority* authority;
  std::map<std::string, std::string> golden = readGolden();
  std::string scheme = "https";
};
TestAuthority* Zoo::authority = nullptr;

TEST_F(Zoo, Certificates) {
  const Animal animals[] = {
      {"good", {get("200 OK\r\nKorvane-Error: 0", "EOF_FLAG\n")}},
      {"intermediate sent",
       {get("200 OK", "EOF_FLAG\n")},
       {.certificate = Certificate::intermediate}},
      {"expired", {}, {.certificate = Certificate::expired}},
      {"not yet valid", {}, {.certificate = Certificate::notYetValid}},
      {"self-signed", {}, {.certificate = Certificate::selfSigned}},
      {"intermediate not sent", {}, {.certificate = Certificate::intermediateNotSent}},
  };
  for (const Animal& animal : animals) expectGolden(animal);
  config().setSSLCertFile(write("other.pem", TestAuthority().certificatePem()));
  expectGolden({"wrong CA", {}, {}});
  expectGolden({"wrong CA with intermediate", {}, {.certificate = Certificate::intermediate}});
}

TEST_F(Zoo, Handshakes) {
  const auto version = [](int lowest, int highest) {
    return [=](SSL_CTX* context) {
      SSL_CTX_set_security_level(context, 0);
      SSL_CTX_set_min_proto_version(context, lowest);
      SSL_CTX_set_max_proto_version(context, highest);
    };
  };
  const auto asking = [](SSL_CTX* context) {
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER, nullptr);
  };
  const auto demanding = [](int highest) {
    return [=](SSL_CTX* context) {
      SSL_CTX_set_max_proto_version(context, highest);
      SSL_CTX_set_verify(context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    };
  };
  const Animal animals[] = {
      {"TLS 1.0 only", {}, {.tune = version(TLS1_VERSION, TLS1_VERSION)}},
      {"TLS 1.1 at most", {}, {.tune = version(TLS1_VERSION, TLS1_1_VERSION)}},
      {"no common cipher",
       {},
       {.tune =
            [](SSL_CTX* context) {
              SSL_CTX_set_max_proto_version(context, TLS1_2_VERSION);
              SSL_CTX_set_cipher_list(context, "AES128-SHA");
            }}},
      {"client certificate, TLS 1.2", {}, {.tune = demanding(TLS1_2_VERSION)}},
      {"client certificate, TLS 1.3", {}, {.tune = demanding(TLS1_3_VERSION)}},
      // What a client may see of the same when the alert is lost with the connection.
      {"client certificate, TLS 1.3",
       {"", Then::drop},
       {.manner = Manner::answerUnread, .tune = asking}},
      {"client certificate, TLS 1.3",
       {"", Then::reset},
       {.manner = Manner::answerUnread, .tune = asking}},
      {"plain HTTP", {get("400 Bad Request"), Then::drop}, {.manner = Manner::sayPlain}},
      {"SSH", {"SSH-2.0-OpenSSH_9.2\r\n", Then::drop}, {.manner = Manner::sayPlain}},
      {"telnet", {"\xff\xfd\x18\xff\xfd\x20", Then::drop}, {.manner = Manner::sayPlain}},
      {"closed at once", {}, {.manner = Manner::dropAll}},
      {"reset after the client's hello", {"", Then::reset}, {.manner = Manner::sayPlain}},
      {"closed in the handshake",
       {"", Then::drop},
       {.manner = Manner::cutHandshake, .handshakeBytes = 100}},
      {"silent in the handshake",
       {"", Then::hang},
       {.manner = Manner::cutHandshake, .handshakeBytes = 100},
       kShortMs},
      {"silent after connecting", {}, {.manner = Manner::hangInHandshake}, kShortMs},
  };
  for (const Animal& animal : animals) expectGolden(animal);
}

TEST_F(Zoo, BrokenAnswers) {
  const std::string head = "HTTP/1.1 200 OK\r\nKorvane-Error: 0\r\n";
  std::string many = head;
  for (int i = 0; i < 600; ++i) many += "X-Header: value\r\n";
  const TlsServer::Options unread{.manner = Manner::answerUnread};
  const Animal animals[] = {
      {"closed after the request", {"", Then::close}},
      {"dropped after the request", {"", Then::drop}},
      {"reset after the request", {"", Then::reset}, unread},
      {"reset in the headers", {head, Then::reset}, unread},
      {"reset in the body", {head + "Content-Length: 100\r\n\r\nEOF_", Then::reset}, unread},
      {"closed in the headers", {head, Then::close}},
      {"closed in an open body", {head + "\r\nEOF_", Then::close}},
      {"body shorter than announced",
       {head + "Content-Length: 100\r\n\r\nEOF_FLAG\n", Then::close}},
      {"body longer than announced", {head + "Content-Length: 5\r\n\r\nEOF_FLAG\n", Then::close}},
      {"silent after the request", {"", Then::hang}, {}, kShortMs},
      {"silent in the headers", {head, Then::hang}, {}, kShortMs},
      {"silent in the body", {head + "Content-Length: 100\r\n\r\nEOF_", Then::hang}, {}, kShortMs},
      {"slow",
       {head + "Content-Length: 900\r\n\r\n" + std::string(800, '\n')},
       {.manner = Manner::drip},
       2 * kShortMs},
      {"encoded",
       {get("200 OK\r\nKorvane-Error: 0\r\nContent-Encoding: gzip", "\x1f\x8b\x08 \n\n x")}},
      {"encoded", {"HTTP/1.1 200 OK\r\ncontent-encoding:gzip\r\n\r\n\x1f\x8b\x08", Then::close}},
      {"no encoding", {get("200 OK\r\nKorvane-Error: 0\r\nContent-Encoding: gzip", "EOF_FLAG\n")}},
      {"bad chunk", {head + "Transfer-Encoding: chunked\r\n\r\nzz\r\nEOF_", Then::close}},
      {"garbage", {std::string("\x01\x02garbage\x00\xff\r\n\r\n", 14), Then::close}},
      {"other protocol in TLS", {"220 mail.test ESMTP\r\n", Then::close}},
      {"header without colon", {"HTTP/1.1 200 OK\r\nnonsense\r\n\r\n", Then::close}},
      {"huge header line", {head + "A: " + std::string(400'000, 'x'), Then::hang}},
      {"endless headers", {many, Then::hang}},
      {"huge body", {head + "\r\n" + std::string((64 << 20) + 100, '\n'), Then::hang}},
  };
  for (const Animal& animal : animals) expectGolden(animal);
}

TEST_F(Zoo, NoWayToTheServer) {
  uint16_t port = 0;
  {
    TlsServer gone(*authority, nullptr);
    port = gone.port();
  }
  const std::string at = ":" + std::to_string(port) + "/agent/";
  const struct {
    const char* name;
    std::string host;
    uint32_t patienceMs;
  } cases[] = {{"nothing listens", "127.0.0.1", kLongMs},
               {"unreachable", "127.255.255.255", kLongMs},
               {"unknown name", "no-such-server.invalid", kLongMs},
               {"look-up hangs", "name-that-hangs", kShortMs}};
  tests::HangingResolver names("name-that-hangs");
  for (const auto& test : cases) {
    config().setServerList(STRING(test.host));
    config().setURL(STRING("https://" + test.host + at));
    config().setConnectionTimeout(test.patienceMs / 1000);
    expectGolden(test.name, test.patienceMs, std::to_string(port));
    HttpsHandler::curlCleanup();
  }
  config().setServerList("127.0.0.1");
  expectGolden({"full backlog", {}, {.manner = Manner::neverAccept}, kShortMs});
  scheme = "http";
  config().setValue("agent.http.plain.enabled", "true");
  expectGolden({"TLS on a plain port", {}, {}});
}

TEST_F(Zoo, Settings) {
  const std::string pem = authority->certificatePem();
  const std::pair<const char*, std::string> files[] = {
      {"no CA file", ""},
      {"CA file missing", path("none.pem")},
      {"CA file empty", write("empty.pem", "")},
      {"CA file without a certificate", write("text.pem", "hello\n")},
      {"CA file damaged", write("damaged.pem", pem.substr(0, 200) + "!" + pem.substr(201))},
      {"CA file is a directory", path("IPS")},
  };
  for (const auto& [name, file] : files) {
    config().setSSLCertFile(STRING(file));
    expectGolden({name, {}, {}});
  }
  config().setSSLCertFile(STRING(path("ca.pem")));
  for (const auto& [name, url] :
       {std::pair("URL without a scheme", "127.0.0.1/agent/"),
        std::pair("URL of another scheme", "xyz://user:pw@127.0.0.1/"),
        std::pair("URL of a folder", "file:///var/lib/"), std::pair("URL of FTP", "ftp://h/"),
        std::pair("URL of HTTP", "http://127.0.0.1:1/"),
        std::pair("URL with a user and one slash", "https:/user:pw@127.0.0.1/x/"),
        std::pair("URL with a bad port", "https://127.0.0.1:99999/agent/")}) {
    config().setURL(url);
    expectGolden(name, kLongMs, "");
  }
}

// What the pieces of evidence come to that no server gives for certain.
TEST_F(Zoo, EvidenceOfAConnectionThatEnded) {
  const char* const lost =
      "getpeername() failed with errno 107: Transport endpoint is not connected";
  const struct {
    const char* text;
    bool kept;
    const char *asked, *cause;  // the TLS version in which a certificate was asked for
  } cases[] = {
      {lost, false, nullptr, "HTTP answer: the connection was closed before the answer began"},
      {lost, false, "TLSv1.2", "HTTP answer: the connection was closed before the answer began"},
      {lost, false, "TLSv1.3",
       "TLS handshake: the server requires a client certificate, and ssl.client.certificate names "
       "none"},
      {lost, true, "TLSv1.3", "HTTP answer: the connection was closed before the answer began"},
      {"Connection reset by peer", true, nullptr,
       "HTTP answer: the connection was reset before the answer began"},
  };
  for (const auto& c : cases) {
    for (const int code : {CURLE_SEND_ERROR, CURLE_RECV_ERROR}) {
      TransportRequest request;
      request.url = "https://127.0.0.1/";
      TransportResult result;
      result.errorText = c.text;
      result.trail.keptConnection = c.kept;
      result.trail.requestBytes = 100;
      if (!c.kept) result.trail.lookedUpUs = result.trail.connectedUs = result.trail.tlsUs = 1;
      result.trail.tls.certificateAsked = c.asked;
      if (c.asked) result.trail.tls.version = c.asked;
      EXPECT_EQ(
          findCause({.code = code, .request = request, .result = result, .files = system().files})
              .text(),
          c.cause);
    }
  }
}

TEST_F(Zoo, AResetInTheMiddleOfAnAnswerIsABrokenAnswer) {
  if (!KORVANE_ZOO_RESETS) return;
  const TlsServer server(
      *authority,
      [](const TlsServer::Request&) {
        return TlsServer::Reply{"HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nEOF_", Then::reset};
      },
      {.manner = Manner::answerUnread});
  config().setURL(STRING("https://127.0.0.1:" + std::to_string(server.port()) + "/agent/"));
  EXPECT_EQ(HttpsHandler().log(PropertyList{{"k", "v"}}), CURLE_RECV_ERROR);
  EXPECT_EQ(logged(",10510,"), 1);
}

TEST_F(Zoo, AStopShutsTheSocketOfATransfer) {
  TlsServer server(*authority, nullptr, {.manner = Manner::hangInHandshake});
  config().setURL(STRING("https://127.0.0.1:" + std::to_string(server.port()) + "/agent/"));
  std::thread testing([] { test(); });
  EXPECT_TRUE(server.waitUntilHeld());
  shutdownToken().request();
  testing.join();
  EXPECT_GE(resolver.shut, 1);
}

TEST_F(Zoo, AStopEndsATest) {
  TlsServer server(*authority, nullptr, {.manner = Manner::hangInHandshake});
  config().setURL("https://127.0.0.1:1/agent/");
  ConnectionReport report;
  const std::string place = "127.0.0.1:" + std::to_string(server.port());
  std::thread testing([&] { report = test(STRING(place)); });
  EXPECT_TRUE(server.waitUntilHeld());
  shutdownToken().request();
  testing.join();
  EXPECT_EQ(report.url, "https://" + place + "/agent/");
  EXPECT_EQ(report.failingStage, "TLS handshake");
  EXPECT_EQ(report.cause, "it was cancelled because the agent is stopping");
  EXPECT_EQ(report.stages.size(), 4u);
  shutdownToken().reset();
  config().setURL("");
  EXPECT_EQ(test().cause, "agent.http.url is empty");
}

// The whole report, as a screen shows it.
TEST_F(Zoo, ReportForAScreen) {
  for (const Certificate kind : {Certificate::good, Certificate::expired}) {
    const TlsServer server(*authority,
                           [](const TlsServer::Request&) {
                             return TlsServer::answer("EOF_FLAG\n", "Korvane-Error: 0\r\n");
                           },
                           {.certificate = kind});
    config().setURL(
        STRING("https://user:pw@127.0.0.1:" + std::to_string(server.port()) + "/agent/"));
    const std::string text = toText(test());
    EXPECT_EQ(masked(text, std::to_string(server.port())),
              golden[kind == Certificate::good ? "report of a good server"
                                               : "report of an expired certificate"]);
    for (const TlsServer::Request& request : server.requests()) {
      EXPECT_EQ(request.path, "/agent/testConnection");
      EXPECT_EQ(request.body, "EOF_FLAG\n");
    }
  }
  EXPECT_EQ(currentConnection().record().last().wallMs, 0);
  EXPECT_EQ(logText().find(",1022"), std::string::npos);
}

}  // namespace
}  // namespace korvane
