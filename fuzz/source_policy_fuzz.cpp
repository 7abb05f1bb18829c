// Any bytes as a source policy: what the translator stand-in makes of it, the stand-in
// drivers and the agent understand.
#include <cstdlib>
#include <memory>

#include "platform/fake/fake_platform.h"
#include "stand-in-policy/policy_model.h"
#include "translate-stand-in/source_policy.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace korvane;
  using namespace korvane::translate_stand_in;
  static platform::FakePlatform fake;
  fake.systemInfo.variables["A"] = "/a\n%";
  MachineState machine({fake.files, fake.registry, fake.systemInfo});
  // What stands behind a zero is an application's.
  const std::string text(reinterpret_cast<const char*>(data), size);
  const size_t end = text.find('\0');
  Source source{text.substr(0, end), {}};
  if (end != std::string::npos)
    source.applications.push_back({"applications/a/policy.txt", text.substr(end + 1)});
  const Translation made = SourcePolicy(machine, {}, Target::driver).translate(source);
  if (!made.problem.empty()) return 0;
  const auto policy = std::make_unique<kvp_policy>();
  kvp_error error{};
  RetransItems items;
  ItemsProblem problem;
  if (kvp_parse(made.policy.data(), made.policy.size(), policy.get(), &error) != 0 ||
      !parseRetransItems(retransItemsText(made.items), items, problem) || items != made.items)
    std::abort();
  return 0;
}
