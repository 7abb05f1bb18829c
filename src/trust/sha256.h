// SHA-256 of what comes piece by piece.
//
// Lifetime: owns its state; of no use after text(). Threads: used by one at a time.
// Errors: an empty text when the cryptographic library computes none, which no digest equals.
#pragma once

#include <openssl/evp.h>

#include <memory>
#include <string>
#include <string_view>

namespace korvane::trust {

inline constexpr size_t kDigestDigits = 64;

class Sha256 {
 public:
  Sha256();
  void add(std::string_view piece);
  // kDigestDigits lower-case hexadecimal ones.
  std::string text();

 private:
  struct Free {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
  };
  std::unique_ptr<EVP_MD_CTX, Free> _context;
  bool _computed = false;
};

std::string sha256Of(std::string_view bytes);

}  // namespace korvane::trust
