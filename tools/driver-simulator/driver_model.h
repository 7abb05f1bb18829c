// The driver that the simulator plays: it loads policies, rolls its logs and answers questions
// about itself. It does not enforce anything.
//
// Used by one thread. Its settings are the driver's parameters in the registry of `system`, which
// must outlive it.
// Errors are Win32 error numbers in the reply.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/platform.h"
#include "stand-in-policy/driver_control.h"
#include "stand-in-policy/policy_model.h"

namespace korvane::simulator {

struct Reply {
  uint32_t error = 0;
  std::string output;
  bool atOnce = false;  // finished before the request's call returned
};

class DriverModel {
 public:
  explicit DriverModel(platform::Platform& system) : _system(system) {}

  // Starts as a driver does at boot: with `policyFile`, or the recorded one when it is empty, or,
  // when that cannot be loaded or the setting says so, with the built-in policy.
  void boot(const std::string& policyFile);
  Reply handle(uint32_t code, const std::string& input, uint32_t room);

  // What the operator has told it.
  kvp_control& control() { return _control; }
  // The state that the operator is told.
  std::string state() const;

  bool builtIn() const { return _driver->has_policy == 0; }
  std::string policyName() const;

 private:
  bool load(const std::string& path);
  Reply loadRequest(const std::string& input);
  Reply rollLog(const char* valueName);
  Reply processSnapshot(uint32_t room);
  Reply setSnapshot(uint32_t room);
  std::string parameter(const char* name);

  platform::Platform& _system;
  std::unique_ptr<kvp_driver> _driver = std::make_unique<kvp_driver>();  // too large for a stack
  kvp_control _control{};
};

}  // namespace korvane::simulator
