// What the settings of the server's identity and the agent's own certificate can have wrong, and
// what a server that is another one shows.
#include "comm/failure_cause.h"
#include "comm/failure_text.h"
#include "comm/pem_file.h"
#include "comm/tls_identity.h"
#include "config/identity_check.h"
#include "config/url_text.h"

namespace korvane {
namespace {

using Stage = ConnectionStage;

FailureCause wrongSetting(const std::string& cause, const std::string& nextStep) {
  return {Stage::settings, cause, nextStep};
}

FailureCause checkText(Key key, const std::string& value) {
  const std::string fault = identityFault(key, value);
  if (fault.empty()) return {};
  const std::string name = rowOf(key).name;
  return wrongSetting(name + ", " + quoted(withoutUser(value)) + ", " + fault,
                      "Correct " + name + ", or leave it empty.");
}

FailureCause checkFile(platform::Files& files, const char* what, const std::string& path,
                       PemContent content, Key key) {
  if (path.empty()) return {};
  const std::string fault = readPemFile(files, path, content).fault;
  if (fault.empty()) return {};
  return wrongSetting("the " + std::string(what) + " file " + path + " " + fault,
                      std::string("Correct the file, in PEM, or ") + rowOf(key).name + ".");
}

FailureCause checkClient(platform::Files& files, const TlsIdentity& identity) {
  const std::string& certificate = identity.clientCertificate;
  if (certificate.empty()) return {};
  const std::string& key = identity.clientKey.empty() ? certificate : identity.clientKey;
  FailureCause cause = checkFile(files, "client certificate", certificate, PemContent::certificates,
                                 Key::sslClientCertificate);
  if (!cause.failed())
    cause = checkFile(files, "client key", key, PemContent::key, Key::sslClientKey);
  if (cause.failed() || arePair(files, certificate, key)) return cause;
  return wrongSetting("the key in " + key + " does not belong to the certificate in " + certificate,
                      "Set ssl.client.certificate and ssl.client.key to a pair.");
}

std::string listed(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + quoted(name);
  return text.empty() ? "no name" : text;
}

}  // namespace

FailureCause checkIdentityTexts(const std::string& url, const TlsIdentity& identity) {
  FailureCause cause = checkText(Key::sslServerNames, identity.serverNames);
  if (!cause.failed()) cause = checkText(Key::sslServerPins, identity.serverPins);
  if (!cause.failed()) cause = checkText(Key::sslMinimumVersion, identity.minimumVersion);
  if (!cause.failed() && identity.clientCertificate.empty() && !identity.clientKey.empty())
    cause = wrongSetting("ssl.client.key is set, but ssl.client.certificate is not",
                         "Set ssl.client.certificate to the file with the agent's certificate.");
  if (cause.failed() || !isPlainHttp(url) || !identity.asksForServer()) return cause;
  return wrongSetting("ssl.server.names and ssl.server.pins cannot be checked over http",
                      "Use https:// in agent.http.url.");
}

FailureCause checkIdentity(platform::Files& files, const std::string& url,
                           const TlsIdentity& identity) {
  FailureCause cause = checkIdentityTexts(url, identity);
  if (cause.failed() || !isHttps(url)) return cause;
  cause = checkFile(files, "revocation list", identity.crlFile, PemContent::revocationLists,
                    Key::sslCrlFile);
  return cause.failed() ? cause : checkClient(files, identity);
}

FailureCause identityCause(const ExchangeEvidence& evidence) {
  const TlsTrail& tls = evidence.result.trail.tls;
  if (tls.identity == TlsTrail::Identity::otherName) {
    return {Stage::certificate,
            "the server's certificate is for " + listed(tls.names) +
                ", of which ssl.server.names lists none",
            "Check that this is the server; then add its name to ssl.server.names."};
  }
  return {Stage::certificate,
          "the server's key has the pin " + tls.pin + ", which ssl.server.pins does not list",
          "Check that this is the server and that its key was changed on purpose; then add the pin "
          "to ssl.server.pins."};
}

}  // namespace korvane
