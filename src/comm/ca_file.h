// The content of the file that servers' certificates must chain to. Read the way libcurl has
// OpenSSL read it, so a file that passes here is accepted by transfers.
//
// Any thread; nothing is kept. Errors: `fault` says what is wrong, without the path; empty
// when nothing is.
//
//   const CaFile file = readCaFile(files, "/etc/korvane/ca.pem");
//   if (!file.fault.empty()) ...  // "is missing", "is empty", "contains no PEM certificate", ...
#pragma once

#include <string>
#include <vector>

#include "comm/transfer_trail.h"
#include "platform/fwd.h"

namespace korvane {

struct CaFile {
  std::string fault;
  std::vector<SeenCertificate> certificates;  // in the file's order
};

CaFile readCaFile(platform::Files& files, const std::string& path);

}  // namespace korvane
