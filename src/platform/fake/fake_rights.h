// Rights as a test wants them: a path that was spoilt, and all that lies below it, is unsafe. Set
// before other threads ask.
#pragma once

#include <set>
#include <string>

#include "platform/rights.h"

namespace korvane::platform {

class FakeRights final : public Rights {
 public:
  std::string fault(const std::string& path) override {
    for (const std::string& unsafe : spoilt)
      if (path == unsafe || path.starts_with(unsafe + "/"))
        return unsafe + " is writable by everybody";
    return {};
  }
  bool faultsAllowed() const override { return allowed; }

  std::set<std::string> spoilt;
  bool allowed = false;
};

}  // namespace korvane::platform
