// Who the server has to be: each row of server_identity.txt against a real server, by the connection
// test and by an exchange; what a refused server gets to see; and settings that change while a
// connection stands.
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <array>
#include <fstream>

#include "comm/curl_trace.h"
#include "config/identity_check.h"
#include "tests/comm/comm_fixture.h"
#include "tests/support/tls_server.h"

namespace korvane {
namespace {

using tests::Certificate;
using tests::TestAuthority;
using tests::TlsServer;
using Row = std::vector<std::string>;

std::vector<Row> rowsOf(const std::string& group) {
  std::ifstream file(KORVANE_IDENTITIES);
  std::vector<Row> rows;
  for (std::string line; std::getline(file, line);) {
    if (!line.starts_with(group + " |")) continue;
    std::istringstream cells(line);
    rows.emplace_back();
    for (std::string cell; std::getline(cells, cell, '|');)
      rows.back().push_back(STRING(cell).trimmed().toUtf8());
  }
  EXPECT_FALSE(rows.empty()) << group;
  return rows;
}

// As `openssl pkey -pubout -outform der | openssl dgst -sha256 -binary | base64` makes it.
std::string pin(const X509* certificate) {
  unsigned char* der = nullptr;
  const int size = i2d_PUBKEY(X509_get0_pubkey(certificate), &der);
  std::array<unsigned char, 32> digest{};
  std::array<unsigned char, 45> text{};
  EVP_Digest(der, static_cast<size_t>(size), digest.data(), nullptr, EVP_sha256(), nullptr);
  OPENSSL_free(der);
  EVP_EncodeBlock(text.data(), digest.data(), 32);
  return "sha256//" + std::string(reinterpret_cast<const char*>(text.data()));
}

class ServerIdentity : public tests::CommFixture {
 protected:
  ServerIdentity() {
    config().setServerList("127.0.0.1");
    config().setSSLCertFile(write("ca.pem", authority.certificatePem()));
  }
  static TlsServer::Reply fine(const TlsServer::Request&) {
    return TlsServer::answer("EOF_FLAG\n", "Korvane-Error: 0\r\n");
  }
  void use(const TlsServer& server) {
    config().setURL(STRING("https://127.0.0.1:" + std::to_string(server.port()) + "/agent/"));
  }
  void set(const char* key, const std::string& value) { config().setValue(key, STRING(value)); }
  // "none" is no file; other names are of files with these contents.
  std::string file(const std::string& name, const std::map<std::string, std::string>& contents) {
    if (name == "none") return {};
    const auto found = contents.find(name);
    return found == contents.end() ? path("missing.pem") : write(name + ".pem", found->second);
  }

  // The row's outcome and part of the cause, which stand at its end; the mark OWN is the pin.
  void expect(const TlsServer& server, const Row& row, size_t outcomeAt) {
    SCOPED_TRACE(::testing::PrintToString(row));
    use(server);
    const ConnectionReport report = test();
    EXPECT_EQ(report.ok ? "works" : report.failingStage, row[outcomeAt]) << report.cause;
    std::string part = row.size() > outcomeAt + 1 ? row[outcomeAt + 1] : "";
    if (const size_t own = part.find("sha256//OWN"); own != std::string::npos)
      part.replace(own, 11, pin(server.certificate()));
    EXPECT_NE(report.cause.find(part), std::string::npos) << report.cause;
    EXPECT_EQ(report.cause.find("hunter2"), std::string::npos) << report.cause;
    const int code = HttpsHandler().log(PropertyList{{"k", "v"}});
    EXPECT_EQ(code == 0, report.ok) << code;
    if (!report.ok) {
      EXPECT_EQ(server.requests().size(), 0u) << "no request may leave";
      EXPECT_EQ(currentConnection().record().last().text,
                report.failingStage + ": " + report.cause);
    }
    HttpsHandler::curlCleanup();
  }

  const TestAuthority authority;
  const TestAuthority other;
};

TEST_F(ServerIdentity, Names) {
  for (const Row& row : rowsOf("names")) {
    const bool nameless = row[1] == "none" || row[1].starts_with("CN=");
    TlsServer::Options options{.names = nameless ? "" : row[1]};
    if (row[1].starts_with("CN=")) options.commonName = row[1].substr(3);
    const TlsServer server(authority, &fine, options);
    set("ssl.server.names", row[2]);
    expect(server, row, 3);
  }
}

TEST_F(ServerIdentity, Pins) {
  for (const Row& row : rowsOf("pins")) {
    const TlsServer server(authority, &fine);
    std::string pins;
    for (const std::string& word : listOf(STRING(row[1]))) {
      pins += (pins.empty() ? "" : ",") + (word == "own"      ? pin(server.certificate())
                                           : word == "issuer" ? pin(authority.certificate())
                                           : word == "other"  ? pin(other.certificate())
                                           : word == "OWNWITHOUTPREFIX"
                                               ? pin(server.certificate()).substr(8)
                                               : word);
    }
    set("ssl.server.pins", pins.empty() ? row[1] : pins);
    expect(server, row, 2);
  }
}

TEST_F(ServerIdentity, RevocationLists) {
  for (const Row& row : rowsOf("crl")) {
    const TlsServer server(
        authority, &fine,
        {.certificate = row[1] == "good" ? Certificate::good : Certificate::intermediate});
    const std::string list = authority.revocationList(nullptr, -1, 1);
    set("ssl.crl.file",
        file(row[2], {{"of the authority, nothing revoked", list},
                      {"of the authority, the server revoked",
                       authority.revocationList(server.certificate(), -1, 1)},
                      {"of the authority, expired", authority.revocationList(nullptr, -2, -1)},
                      {"of the authority, not yet valid", authority.revocationList(nullptr, 1, 2)},
                      {"of another authority", other.revocationList(nullptr, -1, 1)},
                      {"in the authority's name, signed by another",
                       authority.revocationList(nullptr, -1, 1, &other)},
                      {"nothing", ""},
                      {"text", "hello\n"},
                      {"a certificate", authority.certificatePem()},
                      {"damaged", list.substr(0, 100) + "!" + list.substr(101)}}));
    expect(server, row, 3);
  }
}

TEST_F(ServerIdentity, TheAgentsCertificate) {
  const TestAuthority::Client good = authority.client();
  const TestAuthority::Client expired = authority.client(/*expired=*/true);
  const TestAuthority::Client foreign = other.client();
  for (const int highest : {TLS1_2_VERSION, TLS1_3_VERSION}) {
    for (const Row& row : rowsOf("client")) {
      const bool demands = row[1] == "its certificate";
      const std::string trusted = authority.certificatePem();
      const TlsServer server(authority, &fine, {.tune = [&](SSL_CTX* context) {
                               SSL_CTX_set_max_proto_version(context, highest);
                               X509_STORE_add_cert(SSL_CTX_get_cert_store(context),
                                                   const_cast<X509*>(authority.certificate()));
                               if (demands)
                                 SSL_CTX_set_verify(
                                     context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT,
                                     nullptr);
                             }});
      set("ssl.client.certificate", file(row[2], {{"good", good.certificate},
                                                  {"good with key", good.certificate + good.key},
                                                  {"of another authority", foreign.certificate},
                                                  {"expired", expired.certificate},
                                                  {"text", "hello\n"}}));
      set("ssl.client.key",
          row[3] == "none"
              ? ""
              : file("key, " + row[3],
                     {{"key, good", good.key},
                      {"key, its own", row[2] == "expired" ? expired.key : foreign.key},
                      {"key, of another", foreign.key},
                      {"key, encrypted", good.encryptedKey}}));
      expect(server, row, 4);
    }
  }
}

TEST_F(ServerIdentity, TheLowestVersion) {
  for (const Row& row : rowsOf("least")) {
    const TlsServer server(authority, &fine, {.tune = [&](SSL_CTX* context) {
                             SSL_CTX_set_max_proto_version(
                                 context, row[1] == "1.2" ? TLS1_2_VERSION : TLS1_3_VERSION);
                           }});
    set("ssl.minimum.version", row[2] == "none" ? "" : row[2]);
    expect(server, row, 3);
  }
}

// On the connection of earlier exchanges too: it is the server's, not the settings'.
TEST_F(ServerIdentity, AChangedSettingCountsOnAKeptConnection) {
  const TlsServer server(authority, &fine, {.names = "DNS:server.example"});
  use(server);
  const auto log = [] { return HttpsHandler().log(PropertyList{{"k", "v"}}); };
  EXPECT_EQ(log(), 0);
  for (const auto& [key, wrong, right] :
       {std::tuple("ssl.server.names", std::string("other.example"), std::string("server.example")),
        std::tuple("ssl.server.pins", pin(other.certificate()), pin(server.certificate()))}) {
    const size_t before = server.requests().size();
    set(key, wrong);
    EXPECT_EQ(log(), 60) << key;
    EXPECT_EQ(server.requests().size(), before) << key;
    set(key, right);
    EXPECT_EQ(log(), 0) << key;
  }
  EXPECT_EQ(logged(",10223,"), 2);
}

// Each new connection is judged by the files as they are then.
TEST_F(ServerIdentity, AReplacedTrustStoreCountsForTheNextConnection) {
  const TlsServer server(authority, [](const TlsServer::Request& request) {
    TlsServer::Reply reply = fine(request);
    reply.then = TlsServer::Reply::Then::close;
    return reply;
  });
  use(server);
  const auto log = [] { return HttpsHandler().log(PropertyList{{"k", "v"}}); };
  EXPECT_EQ(log(), 0);
  write("ca.pem", other.certificatePem());
  EXPECT_EQ(log(), 60);
  write("ca.pem", authority.certificatePem());
  EXPECT_EQ(log(), 0);
  EXPECT_EQ(server.requests().size(), 2u);
}

TEST_F(ServerIdentity, PlainHttpCannotShowIt) {
  config().setURL("http://127.0.0.1:1/agent/");
  set("agent.http.plain.enabled", "true");
  set("ssl.server.names", "server.example");
  EXPECT_EQ(test().cause, "ssl.server.names and ssl.server.pins cannot be checked over http");
  EXPECT_EQ(HttpsHandler().log(PropertyList{{"k", "v"}}), -1);
}

// What libcurl would print, and what is printed of it.
TEST(CurlTrace, NothingThatAuthenticatesIsShown) {
  const struct {
    curl_infotype type;
    const char *piece, *shown;
  } cases[] = {
      {CURLINFO_TEXT, "Connected to 127.0.0.1\n", "* Connected to 127.0.0.1\n"},
      {CURLINFO_TEXT, "Server auth using Basic with user 'ann'\n",
       "* Server auth using Basic with user '***'\n"},
      {CURLINFO_TEXT, "Uses proxy env variable https_proxy == 'http://ann:p w@h:1'\n",
       "* Uses proxy env variable https_proxy == 'http://***@h:1'\n"},
      {CURLINFO_TEXT, "Uses proxy env variable all_proxy == 'ann:p'w@h:1'\n",
       "* Uses proxy env variable all_proxy == '***@h:1'\n"},
      {CURLINFO_TEXT, "Unsupported proxy ann:p@h\n", "* Unsupported proxy ***@h\n"},
      {CURLINFO_HEADER_OUT,
       "POST /a HTTP/1.1\r\nHost: h\r\nAuthorization: Basic eDp5\r\nKorvane-GUID: 0123\r\n\r\n",
       "> POST /a HTTP/1.1\n> Host: h\n> Authorization: ***\n> Korvane-GUID: ***\n> \n"},
      {CURLINFO_HEADER_OUT, "CONNECT h:443 HTTP/1.1\r\nproxy-authorization:Basic eDp5\r\n",
       "> CONNECT h:443 HTTP/1.1\n> proxy-authorization: ***\n"},
      {CURLINFO_HEADER_OUT, "ic eDp5eDp5\r\n", "> ***\n"},
      {CURLINFO_HEADER_OUT, "eDp5eDp5", "> ***\n"},
      {CURLINFO_HEADER_IN, "HTTP/1.1 200 \x1b[2J\r\n", "< HTTP/1.1 200 .[2J\n"},
      {CURLINFO_HEADER_IN, "Set-Cookie: id=1\r\n", "< Set-Cookie: ***\n"},
      {CURLINFO_HEADER_IN, "Server: x\x9b\r\n", "< Server: x.\n"},
      {CURLINFO_DATA_OUT, "secret", ""},
  };
  for (const auto& c : cases) EXPECT_EQ(traceText(c.type, c.piece), c.shown) << c.piece;
}

}  // namespace
}  // namespace korvane
