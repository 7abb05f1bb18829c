// The files in PEM that an exchange uses: certificates that servers' chain to, revocation lists,
// the agent's own certificate and key. Read the way libcurl has OpenSSL read them, so a file that
// passes here is accepted by transfers.
//
// Any thread; nothing is kept. Errors: `fault` says what is wrong, without the path; empty
// when nothing is.
//
//   const PemFile file = readPemFile(files, "/etc/korvane/ca.pem", PemContent::certificates);
//   if (!file.fault.empty()) ...  // "is missing", "is empty", "contains no PEM certificate", ...
#pragma once

#include <string>
#include <vector>

#include "comm/transfer_trail.h"
#include "platform/fwd.h"

namespace korvane {

enum class PemContent { certificates, revocationLists, key };

struct PemFile {
  std::string fault;
  std::vector<SeenCertificate> certificates;  // in the file's order
};

PemFile readPemFile(platform::Files& files, const std::string& path, PemContent wanted);

// Whether a file's first certificate and another file's key, both without a fault, are a pair.
bool arePair(platform::Files& files, const std::string& certificatePath,
             const std::string& keyPath);

}  // namespace korvane
