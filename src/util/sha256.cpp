#include "util/sha256.h"

#include <array>

#include "util/errors.h"

namespace korvane {

namespace {

void require(bool done) {
  if (!done) throw AgentError(1, "The cryptographic library computes no SHA-256.", "sha256Hex");
}

}  // namespace

Sha256::Sha256() : _context(EVP_MD_CTX_new()) {
  require(_context && EVP_DigestInit_ex(_context.get(), EVP_sha256(), nullptr) == 1);
}

void Sha256::add(std::string_view piece) {
  require(EVP_DigestUpdate(_context.get(), piece.data(), piece.size()) == 1);
}

std::string Sha256::text() {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned size = 0;
  require(EVP_DigestFinal_ex(_context.get(), digest.data(), &size) == 1);
  std::string text;
  for (unsigned i = 0; i < size; ++i) {
    constexpr const char* kHexDigits = "0123456789abcdef";
    text += kHexDigits[digest[i] >> 4];
    text += kHexDigits[digest[i] & 15];
  }
  return text;
}

std::string sha256Hex(std::string_view bytes) {
  Sha256 digest;
  digest.add(bytes);
  return digest.text();
}

}  // namespace korvane
