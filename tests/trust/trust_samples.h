// The signed packages that make_samples.py made, and a machine with trusted signers.
#pragma once

#include <fstream>
#include <sstream>
#include <string>

namespace korvane::tests {

constexpr char kSigners[] = "/opt/korvane/IPS/signers.pem";

inline std::string sample(const std::string& name) {
  std::ifstream in(std::string(KORVANE_SIGNED_SAMPLES "/") + name, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

}  // namespace korvane::tests
