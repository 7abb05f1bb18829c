// Any bytes as the IDS component's answer, and as its settings.
#include <cstdlib>

#include "ids/hids_component.h"
#include "platform/fake/fake_platform.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace korvane;
  static platform::FakePlatform fake;
  static const platform::CurrentPlatform current(fake.platform());
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  fake.files.put("/IDS/ids.properties", bytes);
  // The number of a component's first request while the clock stands still.
  const std::string id = std::to_string(fake.clock.wallMs()) + "-1";
  fake.files.put("/IDS/policy.result", "request.id=" + id + "\n" + bytes);
  HidsComponent component({fake.files, fake.clock, shutdownToken()}, "/IDS", [] { return 0; });
  PropertyList results;
  if (!component.applyPolicy("/p")) std::abort();
  if (component.readResults(results) && findProperty(results, "request.id")) std::abort();
  for (const Property& rule : component.logRules())
    if (!rule.first.startsWith("Log.")) std::abort();
  component.settings();
  return 0;
}
