// Any bytes as a policy over the cloud channel: in base64, as an application's archive and as a
// source policy. What is combined can be read back and says what went in.
#include <cstdlib>

#include "cloud/source_combination.h"
#include "util/base64.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace korvane;
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  std::string decoded;
  decodeBase64(bytes, decoded);
  archive::Refusal refusal;
  PolicySums sums;
  const bool usable = checkApplication("fuzz", bytes, sums, refusal);
  SourceCombination combination;
  const auto all = [](const std::string&) { return true; };
  if (!combination.addBase(bytes, true, refusal) ||
      !combination.addApplicationsOf(bytes, all, refusal))
    return 0;
  ApplicationSums expected = applicationsOf(bytes);
  if (usable && !expected.contains("fuzz") && combination.addApplication("fuzz", bytes, refusal))
    expected["fuzz"] = sums;
  const std::string combined = combination.finish();
  if (applicationsOf(combined) != expected) std::abort();
  return 0;
}
