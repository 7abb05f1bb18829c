#include <algorithm>

#include <fmt/format.h>

#include "comm/connection_test.h"

namespace korvane {

std::string toText(const ConnectionReport& report) {
  std::string text = fmt::format("Connection to {}\n", report.url);
  if (!report.proxy.empty()) text += fmt::format("Proxy variables: {}\n", report.proxy);
  for (const StageReport& stage : report.stages) {
    text += fmt::format("  {:<16} {:<6} {:>6} ms  {}\n", stage.name, stage.ok ? "ok" : "FAILED",
                        stage.milliseconds, stage.detail);
  }
  if (!report.certificates.empty()) text += "Certificates, the server's own first:\n";
  for (size_t i = 0; i < report.certificates.size(); ++i) {
    const CertificateReport& seen = report.certificates[i];
    text += fmt::format("  {} subject {}\n    issuer  {}\n    valid   {} to {}\n", i, seen.subject,
                        seen.issuer, seen.notBefore, seen.notAfter);
    if (!seen.error.empty()) text += fmt::format("    wrong   {}\n", seen.error);
  }
  if (report.ok) return text + fmt::format("The connection works ({} ms).\n", report.milliseconds);
  return text + fmt::format("Failed at: {}\nCause: {}\nNext step: {}\n", report.failingStage,
                            report.cause, report.nextStep);
}

}  // namespace korvane
