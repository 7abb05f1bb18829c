#include "tools/server/tls_context.h"

#include <openssl/err.h>

#include <stdexcept>

namespace korvane::server {

namespace {

[[noreturn]] void fail(const std::string& what) {
  char reason[256] = "no reason given";
  if (const unsigned long code = ERR_get_error(); code != 0)
    ERR_error_string_n(code, reason, sizeof reason);
  ERR_clear_error();
  throw std::runtime_error(what + ": " + reason);
}

}  // namespace

TlsContext TlsContext::load(const std::string& certificateFile, const std::string& keyFile) {
  TlsContext made;
  made._context.reset(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
  SSL_CTX* context = made.get();
  if (context == nullptr) fail("cannot make a TLS context");
  SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION);
  SSL_CTX_set_mode(context, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
  if (SSL_CTX_use_certificate_chain_file(context, certificateFile.c_str()) != 1) {
    fail("cannot use the certificate " + certificateFile);
  }
  if (SSL_CTX_use_PrivateKey_file(context, keyFile.c_str(), SSL_FILETYPE_PEM) != 1) {
    fail("cannot use the key " + keyFile);
  }
  return made;
}

}  // namespace korvane::server
