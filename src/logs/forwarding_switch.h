// Whether an agent forwards events: a standard agent always; a cloud agent while the connector has
// the policy buffer switched on, which it is not at the start; any other never. Threads: any.
#pragma once

#include <atomic>

#include "config/service_type.h"

namespace korvane {

class ForwardingSwitch {
 public:
  void setPolicyBuffer(bool on) { _policyBuffer = on; }
  bool policyBuffer() const { return _policyBuffer; }
  bool mayForward() const { return isStandardAgent() || (isCloudAgent() && _policyBuffer); }

 private:
  std::atomic<bool> _policyBuffer{false};
};

}  // namespace korvane
