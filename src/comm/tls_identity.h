// Who the server has to be beyond a certificate of the trust store, and who the agent is to it: the
// settings about that as they stand, and what they come to for one certificate. What is empty asks
// for nothing.
//
// Names are compared as RFC 9525 has it: with the subjectAltName alone, host names with host names
// (letters without case, "*" as the whole left-most label), addresses with addresses. A pin is the
// SHA-256 of the public key of the server's own certificate (RFC 7469). Texts that do not hold what
// they should match nothing; checkIdentity() names them.
//
// Pure but for the files that checkIdentity() reads. Any thread.
//
//   if (!provesIdentity(*certificate, request.identity, result.trail.tls)) refuse();
#pragma once

#include <string>

#include "platform/fwd.h"

struct x509_st;  // OpenSSL's X509: who includes this needs none of its headers

namespace korvane {

class ServerSettings;
struct FailureCause;
struct TlsTrail;

struct TlsIdentity {
  std::string serverNames;        // ssl.server.names: one of them has to be the server's
  std::string serverPins;         // ssl.server.pins: one of them has to be its key's
  std::string crlFile;            // PEM, a revocation list of every authority of a chain
  std::string clientCertificate;  // PEM, with the certificates between it and its authority
  std::string clientKey;          // PEM; empty: it is in the certificate's file
  std::string minimumVersion;     // "1.2" or "1.3": the lowest TLS version, without a fall-back

  bool asksForServer() const { return !serverNames.empty() || !serverPins.empty(); }
};

TlsIdentity tlsIdentityOf(const ServerSettings& settings);

// The lowest version (CURL_SSLVERSION_...) that is accepted when it would otherwise be `lowest`.
long lowestVersion(const TlsIdentity& identity, long lowest);

// Whether the certificate is the one asked for; what was seen of it goes to `seen`.
bool provesIdentity(x509_st& certificate, const TlsIdentity& identity, TlsTrail& seen);

// What is wrong with the texts themselves, and with them and their files; no cause when nothing is.
FailureCause checkIdentityTexts(const std::string& url, const TlsIdentity& identity);
FailureCause checkIdentity(platform::Files& files, const std::string& url,
                           const TlsIdentity& identity);

}  // namespace korvane
