// A certificate with its key, ready for TLS handshakes of a server (TLS 1.2 and later).
//
// Copies share one OpenSSL context, which frees itself with the last of them. Threads may use
// copies at the same time. load() throws std::runtime_error with the file's name and OpenSSL's
// reason.
#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <string>

namespace korvane::server {

class TlsContext {
 public:
  static TlsContext load(const std::string& certificateFile, const std::string& keyFile);

  SSL_CTX* get() const { return _context.get(); }

 private:
  std::shared_ptr<SSL_CTX> _context;
};

}  // namespace korvane::server
