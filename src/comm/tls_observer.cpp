#include "comm/tls_observer.h"

#include <openssl/x509.h>

#include <ctime>
#include <memory>
#include <new>

#include "platform/clock.h"

namespace korvane {
namespace {

constexpr size_t kNameBytes = 256;
constexpr int kChainLength = 16;

// Where a context keeps its observer.
int contextIndex() {
  static const int index = SSL_CTX_get_ex_new_index(0, nullptr, nullptr, nullptr, nullptr);
  return index;
}

std::string nameText(const X509_NAME* name) {
  const std::unique_ptr<BIO, int (*)(BIO*)> out(BIO_new(BIO_s_mem()), &BIO_free);
  // UTF-8 stays readable; control characters are escaped.
  if (!out || X509_NAME_print_ex(out.get(), name, 0, XN_FLAG_RFC2253 & ~ASN1_STRFLGS_ESC_MSB) < 0)
    return {};
  char* text = nullptr;
  const long size = BIO_get_mem_data(out.get(), &text);
  const auto length = static_cast<size_t>(size > 0 ? size : 0);
  return length > kNameBytes ? std::string(text, kNameBytes) + "..." : std::string(text, length);
}

std::string timeText(const ASN1_TIME* time) {
  std::tm parts{};
  char text[32];
  if (ASN1_TIME_to_tm(time, &parts) != 1) return "unreadable";
  return {text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

std::vector<SeenCertificate> describeChain(const STACK_OF(X509) * chain) {
  std::vector<SeenCertificate> all;
  for (int i = 0; i < sk_X509_num(chain) && i < kChainLength; ++i) {
    all.push_back(describeCertificate(sk_X509_value(chain, i)));
  }
  return all;
}

}  // namespace

SeenCertificate describeCertificate(const X509* certificate) {
  return {nameText(X509_get_subject_name(certificate)), nameText(X509_get_issuer_name(certificate)),
          timeText(X509_get0_notBefore(certificate)), timeText(X509_get0_notAfter(certificate))};
}

std::string verifyErrorText(int error) {
  return X509_verify_cert_error_string(error);
}

void TlsObserver::begin(bool bytesTaken) {
  _seen = TlsTrail();
  _bytesTaken = bytesTaken;
}

CURLcode TlsObserver::watchContext(CURL*, void* context, void* observer) {
  auto* const tls = static_cast<SSL_CTX*>(context);
  auto& watching = *static_cast<TlsObserver*>(observer);
  watching._seen.begunMs = watching._clock.monotonicMs();
  if (SSL_CTX_set_ex_data(tls, contextIndex(), observer) != 1) return CURLE_OUT_OF_MEMORY;
  SSL_CTX_set_info_callback(tls, &onInfo);
  SSL_CTX_set_verify(tls, SSL_CTX_get_verify_mode(tls), &onVerify);
  SSL_CTX_set_cert_cb(tls, &onCertificateAsked, nullptr);
  // No variable of the environment makes a file of the session's secrets.
  SSL_CTX_set_keylog_callback(tls, nullptr);
  if (!watching._bytesTaken) {
    SSL_CTX_set_msg_callback(tls, &onMessage);
    SSL_CTX_set_msg_callback_arg(tls, observer);
  }
  return CURLE_OK;
}

TlsObserver* TlsObserver::of(const SSL* ssl) {
  return static_cast<TlsObserver*>(SSL_CTX_get_ex_data(SSL_get_SSL_CTX(ssl), contextIndex()));
}

void TlsObserver::onInfo(const SSL* ssl, int where, int value) {
  TlsTrail& seen = of(ssl)->_seen;
  try {
    if (where & SSL_CB_ALERT) {
      if (value >> 8 != SSL3_AL_FATAL) return;
      (where & SSL_CB_READ ? seen.alertReceived : seen.alertSent) = value & 0xff;
    } else if (where & SSL_CB_HANDSHAKE_DONE) {
      seen.version = SSL_get_version(ssl);
      seen.cipher = SSL_get_cipher_name(ssl);
    }
  } catch (const std::bad_alloc&) {
    seen.version.clear();
  }
}

int TlsObserver::onVerify(int ok, X509_STORE_CTX* store) {
  const auto* ssl = static_cast<const SSL*>(
      X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx()));
  TlsTrail& seen = of(ssl)->_seen;
  try {
    if (!ok) {
      seen.verifyError = X509_STORE_CTX_get_error(store);
      seen.verifyDepth = X509_STORE_CTX_get_error_depth(store);
    }
    // The server's own certificate is looked at last, and a fault ends the verification.
    if (!ok || X509_STORE_CTX_get_error_depth(store) == 0)
      seen.chain = describeChain(X509_STORE_CTX_get0_chain(store));
  } catch (const std::bad_alloc&) {
    seen.chain.clear();
  }
  return ok;
}

int TlsObserver::onCertificateAsked(SSL* ssl, void*) {
  of(ssl)->_seen.certificateAsked = true;
  return 1;  // go on with what is set
}

void TlsObserver::onMessage(int sent, int, int type, const void* bytes, size_t size, SSL*,
                            void* observer) {
  std::string& first = static_cast<TlsObserver*>(observer)->_seen.firstBytes;
  if (sent || type != SSL3_RT_HEADER || !first.empty()) return;
  first.assign(static_cast<const char*>(bytes), size < 5 ? size : 5);  // no allocation
}

}  // namespace korvane
