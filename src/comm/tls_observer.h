// Watches the TLS handshakes of one transport through OpenSSL's callbacks and records what explains
// a failure: alerts, the first bytes that the server sent, the certificate chain as it was built
// and the first thing that is wrong with it. It changes nothing about the handshake or the
// verification; a log of the session's secrets, which libcurl starts for an environment variable,
// it ends.
//
// Lifetime: it must outlive every SSL_CTX that it watches, which libcurl keeps for as long
// as its connection. Threads: that of the transfer. Nothing is thrown into OpenSSL; what
// there is no memory for is left out.
//
//   curl_easy_setopt(easy, CURLOPT_SSL_CTX_FUNCTION, &TlsObserver::watchContext);
//   curl_easy_setopt(easy, CURLOPT_SSL_CTX_DATA, &observer);
//   observer.begin(verbose); ... ; result.trail.tls = observer.seen();
#pragma once

#include <curl/curl.h>
#include <openssl/ssl.h>

#include "comm/transfer_trail.h"
#include "platform/fwd.h"

namespace korvane {

class TlsObserver {
 public:
  explicit TlsObserver(platform::Clock& clock) : _clock(clock) {}

  // Forgets what was seen. `bytesTaken`: libcurl's own trace takes OpenSSL's message
  // callback, so first bytes cannot be seen.
  void begin(bool bytesTaken);
  const TlsTrail& seen() const { return _seen; }

  // CURLOPT_SSL_CTX_FUNCTION.
  static CURLcode watchContext(CURL* easy, void* context, void* observer);

 private:
  static TlsObserver* of(const SSL* ssl);
  static void onInfo(const SSL* ssl, int where, int value);
  static int onVerify(int ok, X509_STORE_CTX* store);
  static int onCertificateAsked(SSL* ssl, void* argument);
  static void onMessage(int sent, int version, int type, const void* bytes, size_t size, SSL* ssl,
                        void* observer);

  platform::Clock& _clock;
  TlsTrail _seen;
  bool _bytesTaken = false;
};

// A certificate's names and dates.
SeenCertificate describeCertificate(const X509* certificate);
// OpenSSL's text for an X509_V_ERR_...
std::string verifyErrorText(int error);

}  // namespace korvane
