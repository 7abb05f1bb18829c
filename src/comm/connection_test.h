// The connection test: one harmless message (testConnection) to the management server, checked
// stage by stage, with the cause of the first failure and one next step.
//
// It does what the agent's own exchanges do, over the same transport with the same settings (lowest
// TLS version, CA file, the server's identity and the agent's, connect time-out), on its own
// connection:
// it neither waits for nor delays the agent's exchanges, and changes nothing - no fail-over, no
// counters, no settings, no last server, no event.
//
// The stages, in this order, are ConnectionStage's. The test ends with the first one that fails;
// the report holds those that were reached.
//
// Lifetime: everything is a value. Threads: any, several tests may run at once. Time: at most
// ConnectionTarget::totalTimeoutMs (30 s), and a stop ends it at once. Errors:
// nothing is thrown but std::bad_alloc; what goes wrong is in the report. Texts are UTF-8.
//
// An operator's tool prints toText(report); a service hands the members on as they are: all of them
// are texts, numbers and lists. A password in a URL or a proxy setting is never among them.
//
//   const ConnectionReport report = connection.test(connection.target());  // the server in use
//   const ConnectionReport other = connection.test(connection.target("10.1.2.3"));
//   if (!report.ok) std::puts((report.failingStage + ": " + report.cause).c_str());
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "comm/tls_identity.h"
#include "platform/fwd.h"
#include "util/string.h"

namespace korvane {

class ServerSettings;
class StopToken;

// Where the agent's settings say to go, and how.
struct ConnectionTarget {
  std::string urlSetting;  // agent.http.url as it stands; empty: unknown
  std::string url;  // the base URL, the path words of the protocol are appended to it as they are
  std::string caFile;  // PEM, what the server's certificate must chain to
  TlsIdentity identity{};
  bool plainAllowed = false;            // the URL may be one of http
  uint32_t connectTimeoutSeconds = 10;  // for name, TCP and TLS together
  uint32_t totalTimeoutMs = 30'000;     // for everything
  STRING charset;                       // named in the message
  long lowestTls = 6;                   // CURL_SSLVERSION_..., the lowest version that is accepted
  bool serverGiven =
      false;  // in place of the one of a good agent.http.url, which is not to blame then
};

// The target of the agent's own exchanges with a server, from the settings of a running agent or of
// a tool. server: a host name or address, with ":port" or with the port that agent.http.url has;
// empty: the current server.
ConnectionTarget agentTarget(const ServerSettings& settings, long lowestTls, const STRING& server);

enum class ConnectionStage {
  settings,       // the URL can be used, the CA file holds certificates, the identity its files
  nameLookUp,     // the host's name has an address
  tcpConnection,  // something accepts connections there
  tlsHandshake,   // it speaks TLS, and a version and cipher that the agent accepts
  certificate,    // its certificate chains to the CA file, is valid now and the one asked for
  httpAnswer,     // it answers whole HTTP, without an error of the server or of a proxy
  agentPort,      // the answer is that of an agent port: no console, web page or redirection
  serverAnswer,   // the management server itself has no objection
};
inline constexpr int kConnectionStages = 8;

// "settings", "name look-up", "TCP connection", "TLS handshake", "certificate", "HTTP answer",
// "agent port", "server's answer".
const char* stageName(ConnectionStage stage);

struct StageReport {
  std::string name;  // stageName()
  bool ok = false;
  int64_t milliseconds = 0;  // that this stage took
  std::string detail;  // what was found: address, TLS version, status ...; the cause when not ok
};

// One certificate of the chain, as far as it could be built.
struct CertificateReport {
  std::string subject;
  std::string issuer;
  std::string notBefore;  // ISO 8601, UTC
  std::string notAfter;
  std::string error;  // what was found wrong with this one; empty when nothing
};

struct ConnectionReport {
  std::string url;  // what was asked
  bool ok = false;
  std::vector<StageReport> stages;              // those walked; a failed one is the last
  std::vector<CertificateReport> certificates;  // the server's own first, then up to the CA
  std::string failingStage;                     // this and the next two are empty when ok
  std::string cause;
  std::string nextStep;
  std::string proxy;  // the environment's proxy variables that libcurl follows; empty without
  int64_t milliseconds = 0;  // the whole test
};

// What a test runs on.
struct ConnectionTestParts {
  platform::Clock& clock;
  platform::Files& files;
  platform::Sockets& sockets;
  platform::SystemInfo& systemInfo;
  StopToken& stop;
};

ConnectionReport testConnection(const ConnectionTarget& target, const ConnectionTestParts& parts);

// The report as lines for a screen, each ended by a line feed; the last ones are the
// failing stage, its cause and the next step.
std::string toText(const ConnectionReport& report);

}  // namespace korvane
