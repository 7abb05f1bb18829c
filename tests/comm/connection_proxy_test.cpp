// The connection test where the environment names a proxy that stands in the way.
#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/comm/comm_fixture.h"
#include "tests/support/tls_server.h"

namespace korvane {
namespace {

using tests::TestAuthority;
using tests::TlsServer;

class ConnectionProxy : public tests::CommFixture {
 protected:
  ConnectionProxy() {
    config().setURL("https://server.invalid/agent/");
    config().setSSLCertFile(write("ca.pem", TestAuthority().certificatePem()));
  }
  ~ConnectionProxy() override { unsetenv("https_proxy"); }

  ConnectionReport over(uint16_t port) {
    const std::string proxy = "http://user:pw@127.0.0.1:" + std::to_string(port);
    setenv("https_proxy", proxy.c_str(), 1);
    const ConnectionReport report = test();
    EXPECT_EQ(report.proxy, "https_proxy=http://***@127.0.0.1:" + std::to_string(port));
    EXPECT_EQ(report.failingStage, "TCP connection");
    return report;
  }
};

TEST_F(ConnectionProxy, NamesWhatTheProxyDoes) {
  const std::pair<const char*, const char*> answers[] = {
      {"407 Proxy Authentication Required", "the proxy requires authentication (status 407)"},
      {"503 Service Unavailable", "no connection to server.invalid port 443 over the proxy: "},
  };
  uint16_t port = 0;
  for (const auto& [status, cause] : answers) {
    const TlsServer proxy(TestAuthority(),
                          [text = std::string(status)](const TlsServer::Request&) {
                            return TlsServer::Reply{
                                "HTTP/1.1 " + text + "\r\nContent-Length: 0\r\n\r\n",
                                TlsServer::Reply::Then::drop};
                          },
                          {.manner = TlsServer::Manner::sayPlain});
    port = proxy.port();
    EXPECT_TRUE(over(port).cause.starts_with(cause)) << over(port).cause;
  }
  const std::string gone = over(port).cause;
  EXPECT_NE(gone.find("over the proxy: Failed to connect to 127.0.0.1 port "), std::string::npos)
      << gone;
}

}  // namespace
}  // namespace korvane
