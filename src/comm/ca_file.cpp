#include "comm/ca_file.h"

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

using Parts = std::unique_ptr<STACK_OF(X509_INFO), void (*)(STACK_OF(X509_INFO)*)>;

void freeParts(STACK_OF(X509_INFO) * parts) {
  sk_X509_INFO_pop_free(parts, X509_INFO_free);
}

std::string damage() {
  const char* reason = ERR_reason_error_string(ERR_peek_last_error());
  ERR_clear_error();
  return reason ? std::string("is damaged (") + reason + ")" : "is damaged";
}

void parse(const std::string& bytes, CaFile& file) {
  ERR_clear_error();
  const std::unique_ptr<BIO, int (*)(BIO*)> in(
      BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())), &BIO_free);
  const Parts parts(in ? PEM_X509_INFO_read_bio(in.get(), nullptr, nullptr, nullptr) : nullptr,
                    &freeParts);
  if (!parts) {
    file.fault = damage();
    return;
  }
  for (int i = 0; i < sk_X509_INFO_num(parts.get()); ++i) {
    const X509* certificate = sk_X509_INFO_value(parts.get(), i)->x509;
    if (certificate) file.certificates.push_back(describeCertificate(certificate));
  }
  if (file.certificates.empty()) file.fault = "contains no PEM certificate";
}

}  // namespace

CaFile readCaFile(platform::Files& files, const std::string& path) {
  CaFile file;
  std::string bytes;
  platform::FileInfo info;
  int error = files.info(path, info);
  if (error == 0 && info.isDirectory) error = EISDIR;
  if (error == 0) error = platform::readWholeFile(files, path, kMaxBytes, bytes);
  if (error == ENOENT) {
    file.fault = "is missing";
  } else if (error != 0) {
    file.fault = "cannot be read (error " + std::to_string(error) + ")";
  } else if (bytes.empty()) {
    file.fault = "is empty";
  } else {
    parse(bytes, file);
  }
  return file;
}

}  // namespace korvane
