#include "comm/pem_file.h"

#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <cerrno>
#include <memory>

#include "comm/tls_observer.h"
#include "platform/files.h"
#include "platform/paths.h"

namespace korvane {
namespace {

constexpr uint64_t kMaxBytes = 16 * 1024 * 1024;

using Bio = std::unique_ptr<BIO, int (*)(BIO*)>;
using Key = std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY*)>;
using Parts = std::unique_ptr<STACK_OF(X509_INFO), void (*)(STACK_OF(X509_INFO)*)>;

// A file's bytes, which may be a key.
struct Bytes {
  ~Bytes() { OPENSSL_cleanse(text.data(), text.size()); }
  Bio open() const {
    return {BIO_new_mem_buf(text.data(), static_cast<int>(text.size())), &BIO_free};
  }
  std::string text;
};

void freeParts(STACK_OF(X509_INFO) * parts) {
  sk_X509_INFO_pop_free(parts, X509_INFO_free);
}

std::string damage() {
  const char* reason = ERR_reason_error_string(ERR_peek_last_error());
  ERR_clear_error();
  return reason ? std::string("is damaged (") + reason + ")" : "is damaged";
}

// Never asks anybody; tells that a pass phrase was wanted.
int noPassPhrase(char*, int, int, void* wanted) {
  *static_cast<bool*>(wanted) = true;
  return -1;
}

Key readKey(const Bytes& bytes, bool& encrypted) {
  const Bio in = bytes.open();
  return {in ? PEM_read_bio_PrivateKey(in.get(), nullptr, &noPassPhrase, &encrypted) : nullptr,
          &EVP_PKEY_free};
}

void parseKey(const Bytes& bytes, PemFile& file) {
  bool encrypted = false;
  if (readKey(bytes, encrypted)) return;
  const bool none = ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE;
  file.fault = encrypted ? "has a key with a pass phrase, which an agent cannot enter"
               : none    ? "contains no PEM private key"
                         : damage();
  ERR_clear_error();
}

void parse(const Bytes& bytes, PemContent wanted, PemFile& file) {
  ERR_clear_error();
  if (wanted == PemContent::key) return parseKey(bytes, file);
  const Bio in = bytes.open();
  bool encrypted = false;
  const Parts parts(
      in ? PEM_X509_INFO_read_bio(in.get(), nullptr, &noPassPhrase, &encrypted) : nullptr,
      &freeParts);
  if (!parts) {
    file.fault = damage();
    return;
  }
  bool listed = false;
  for (int i = 0; i < sk_X509_INFO_num(parts.get()); ++i) {
    const X509_INFO* const part = sk_X509_INFO_value(parts.get(), i);
    if (part->x509) file.certificates.push_back(describeCertificate(part->x509));
    listed |= part->crl != nullptr;
  }
  if (wanted == PemContent::certificates && file.certificates.empty())
    file.fault = "contains no PEM certificate";
  if (wanted == PemContent::revocationLists && !listed)
    file.fault = "contains no PEM revocation list";
}

std::string read(platform::Files& files, const std::string& path, Bytes& bytes) {
  platform::FileInfo info;
  int error = files.info(path, info);
  if (error == 0 && info.isDirectory) error = EISDIR;
  if (error == 0) error = platform::readWholeFile(files, path, kMaxBytes, bytes.text);
  if (error == ENOENT) return "is missing";
  if (error != 0) return "cannot be read (error " + std::to_string(error) + ")";
  return bytes.text.empty() ? "is empty" : "";
}

}  // namespace

PemFile readPemFile(platform::Files& files, const std::string& path, PemContent wanted) {
  PemFile file;
  Bytes bytes;
  file.fault = read(files, path, bytes);
  if (file.fault.empty()) parse(bytes, wanted, file);
  return file;
}

bool arePair(platform::Files& files, const std::string& certificatePath,
             const std::string& keyPath) {
  Bytes certificate, key;
  if (!read(files, certificatePath, certificate).empty() || !read(files, keyPath, key).empty())
    return false;
  const Bio in = certificate.open();
  bool encrypted = false;
  const std::unique_ptr<X509, void (*)(X509*)> first(
      in ? PEM_read_bio_X509(in.get(), nullptr, &noPassPhrase, &encrypted) : nullptr, &X509_free);
  const Key own = readKey(key, encrypted);
  const bool pair = first && own && X509_check_private_key(first.get(), own.get()) == 1;
  ERR_clear_error();
  return pair;
}

}  // namespace korvane
