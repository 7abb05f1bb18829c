// SHA-256 digests, in lower-case hexadecimal digits.
//
// Lifetime: a Sha256 owns its state and is of no use after text(). Threads: used by one at a time.
// Errors: AgentError 1 when the cryptographic library computes none.
#pragma once

#include <openssl/evp.h>

#include <memory>
#include <string>
#include <string_view>

namespace korvane {

inline constexpr size_t kSha256Digits = 64;

// The digest of what comes piece by piece.
class Sha256 {
 public:
  Sha256();
  void add(std::string_view piece);
  std::string text();

 private:
  struct Free {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
  };
  std::unique_ptr<EVP_MD_CTX, Free> _context;
};

std::string sha256Hex(std::string_view bytes);

}  // namespace korvane
