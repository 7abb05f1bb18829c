#include "config/service_type.h"

#include <atomic>

#include "config/install_root.h"
#include "platform/error_codes.h"
#include "platform/platform.h"
#include "platform/registry.h"
#include "util/agent_run.h"

namespace korvane {
namespace {

struct KeptType {
  std::atomic<int> number{0};
};

std::atomic<int>& keptType() {
  return AgentRun::current().part<KeptType>(RunPart::serviceType).number;
}

}  // namespace

void setServiceType(int type) {
  if (type < 1 || type > 3) return;
  int none = 0;
  keptType().compare_exchange_strong(none, type);
}

int serviceType() {
  return keptType().load();
}

int readServiceType() {
  platform::Registry& registry = platform::current().registry;
  STRING text;
  uint32_t number = 0;
  if (registry.readString(kAgentRegistryKey, "AgentType", text) == platform::kOk) {
    if (!text.trimmed().empty()) setServiceType(text.toInt());
  } else if (registry.readDword(kAgentRegistryKey, "AgentType", number) == platform::kOk) {
    setServiceType(number <= 3 ? static_cast<int>(number) : 0);
  }
  return serviceType();
}

bool isStandardAgent() {
  return serviceType() == 1;
}
bool isCloudAgent() {
  return serviceType() == 2 || serviceType() == 3;
}
bool isType3Agent() {
  return serviceType() == 3;
}

}  // namespace korvane
