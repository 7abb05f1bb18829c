// The observed course of one transfer: how far it got and what the peer revealed. It is only
// evidence; failure_cause.h interprets it.
//
// A value, filled by Transport::perform(). A transport that sees less leaves the rest as it is
// here. Texts from the peer are shortened but otherwise raw: they must not be shown unescaped.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace korvane {

// One certificate, its names as RFC 2253 writes them ("CN=server-1,O=Example"), its dates
// ISO 8601 in UTC.
struct SeenCertificate {
  std::string subject;
  std::string issuer;
  std::string notBefore;
  std::string notAfter;
};

// The TLS handshake, as OpenSSL reports it while it runs; empty when a kept connection was used.
struct TlsTrail {
  int64_t begunMs = -1;    // on the monotonic clock; -1: it did not come to it
  std::string firstBytes;  // of what the other end sent, at most five
  std::string version;     // "TLSv1.3", once agreed
  std::string cipher;
  int alertReceived = -1;         // the number of the last fatal TLS alert, RFC 8446, section 6
  int alertSent = -1;             // the same for this end
  bool certificateAsked = false;  // the server wants to see a certificate of the agent
  std::vector<SeenCertificate> chain;  // as far as it was built, the server's own first
  int verifyError = 0;                 // X509_V_ERR_..., 0 while nothing is wrong
  int verifyDepth = 0;                 // which of the chain it is about
  // Of the server's own certificate, once it was compared with the settings' names and pins.
  enum class Identity { notAsked, asAsked, otherName, otherKey } identity = Identity::notAsked;
  std::vector<std::string> names;  // the host names and addresses of its subjectAltName
  std::string pin;                 // of its key, as ssl.server.pins has it
};

struct TransferTrail {
  // Microseconds from the begin until the stage was done, 0 when it was not reached.
  int64_t lookedUpUs = 0;
  int64_t connectedUs = 0;
  int64_t tlsUs = 0;
  int64_t totalUs = 0;
  std::string address;          // the peer's, once connected
  bool keptConnection = false;  // it went over the connection of an earlier transfer
  int systemError = 0;          // errno, or Winsock's number, of the last failed connect
  long proxyStatus = 0;         // of the answer to CONNECT, 0 without a proxy's tunnel
  long requestBytes = 0;        // sent
  long headerBytes = 0;         // received
  bool headersWhole = false;
  bool ownHeader = false;  // a header whose name begins with "Korvane-"
  std::string contentType;
  std::string contentEncoding;
  std::string redirectUrl;
  std::string bodyStart;  // at most 2048 bytes
  int64_t bodyBytes = 0;  // received
  int64_t silentUs = 0;   // at the end, since the last of the answer came, or since the begin
  TlsTrail tls;
};

}  // namespace korvane
