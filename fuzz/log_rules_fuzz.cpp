// Any bytes as the file of log rules, and what is made of those that it holds.
#include <cstdlib>

#include "ids/log_rules.h"
#include "platform/fake/fake_platform.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace korvane;
  static platform::FakePlatform fake;
  static const platform::CurrentPlatform current(fake.platform());
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  fake.files.put("/IPS/log.rules", bytes);
  const auto set = LogRules(fake.files, "/IPS/log.rules").current();
  if (!set) return 0;
  if (set->size() > LogRuleSet::kMaxRules) std::abort();
  const bool forwards = set->forwards([](size_t n) -> std::string_view {
    if (n == 0 || (n > 49 && (n <= 100 || n > 104))) std::abort();
    return n == 1 ? "TFIL" : "x";
  });
  // The pairs of the lines are the same rules, and kept they are found again.
  PropertyList pairs;
  for (const STRING& line : STRING(bytes.substr(bytes.find('\n') + 1)).split(u'\n')) {
    const size_t equals = line.find("=");
    if (equals != STRING::npos) pairs.emplace_back(line.substr(0, equals), line.substr(equals + 1));
  }
  LogRules rules(fake.files, "/IPS/log.rules");
  RefusedRule refused;
  int error = 0;
  if (rules.replace(pairs, refused, error) != LogRules::Outcome::inForce) std::abort();
  const auto again = LogRules(fake.files, "/IPS/log.rules").current();
  if (!again || again->size() != set->size()) std::abort();
  if (again->forwards([](size_t n) -> std::string_view { return n == 1 ? "TFIL" : "x"; }) !=
      forwards)
    std::abort();
  return 0;
}
