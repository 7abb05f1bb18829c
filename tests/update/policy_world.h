// What a policy needs besides a simulated machine: a translator, a driver that accepts everything,
// and an IDS component with preset answers.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "config/agent_config.h"
#include "config/hids_interface.h"
#include "driver/driver_protocol.h"
#include "tests/support/simulated_agent.h"
#include "tests/update/package_answers.h"

namespace korvane::tests {

struct PolicyWorld {
  static constexpr char kTranslator[] = "/opt/korvane/IPS/bin/";

  explicit PolicyWorld(SimulatedMachine& machine) : _machine(machine) {
    constexpr char kParameters[] = "System\\CurrentControlSet\\Services\\KAVIPSDriver\\Parameters";
    machine.fake.registry.put(kParameters, "UseBuiltin", STRING("0"));
    machine.fake.registry.put(kParameters, "Filter File", STRING());
    machine.fake.devices.setOpenError(0);
    machine.fake.devices.setHandler([this](const platform::FakeDevices::Call& call) {
      if (call.controlCode == kNewPolicyCode) ++loads;
      if (call.controlCode == kUseBuiltInCode) ++builtInRequests;
      const bool change = call.controlCode == kUseBuiltInCode || call.controlCode == kNewPolicyCode;
      if (change && refuses) return platform::DeviceScript::atOnce(31);
      if (change) builtin = call.controlCode == kUseBuiltInCode;
      if (change && silent) return platform::DeviceScript::waitEnds(platform::DeviceWait::timedOut);
      std::vector<std::byte> record(1028);
      record[0] = std::byte{builtin};
      return platform::DeviceScript::atOnce(0, record);
    });
    machine.fake.processes.install(
        kTranslator + machine.fake.processes.fileName("translate"),
        [this](const std::string& arguments) { return translate(arguments); });
  }

  static constexpr uint32_t kNewPolicyCode = 0x80008001;
  static constexpr uint32_t kUseBuiltInCode = 0x80008014;

  size_t translations = 0;
  int exitCode = 0;
  std::string errorText = "a text of the translator";
  std::string output = "translated";
  size_t loads = 0, builtInRequests = 0;
  bool builtin = false;
  // A driver that refuses another policy, or changes it and does not answer.
  bool refuses = false, silent = false;

 private:
  // The two last of the quoted arguments are the outputs; for the IDS the first of them is
  // the error text.
  platform::ProgramRun translate(const std::string& arguments) {
    ++translations;
    std::vector<std::string> quoted;
    for (size_t at = 0; (at = arguments.find('"', at)) != std::string::npos;) {
      const size_t end = arguments.find('"', at + 1);
      quoted.push_back(arguments.substr(at + 1, end - at - 1));
      at = end + 1;
    }
    const bool ids = arguments.find("-hidsagent") != std::string::npos;
    const std::string first = quoted[quoted.size() - 2];
    const std::string second = quoted.back();
    if (exitCode != 0) {
      _machine.fake.files.put(first, errorText);
    } else {
      _machine.fake.files.put(ids ? second : first, output);
      if (!ids) _machine.fake.files.put(second, "");
    }
    return {.exitCode = static_cast<uint32_t>(exitCode)};
  }

  SimulatedMachine& _machine;
};

struct TestIds : HidsInterface {
  TestIds() { AgentConfig::setHIDSInterface(this); }
  ~TestIds() override { AgentConfig::setHIDSInterface(nullptr); }
  bool present() override { return installed; }
  bool reload() override { return true; }
  bool setting(const STRING&, STRING&) override { return false; }
  PropertyList settings() override { return {}; }
  PropertyList logRules() override { return {}; }
  bool applyPolicy(const STRING& file) override {
    policy = file;
    return takes;
  }
  bool applyConfiguration(const PropertyList& settings, const PropertyList& rules) override {
    given = settings;
    given.insert(given.end(), rules.begin(), rules.end());
    return takes;
  }
  bool readResults(PropertyList& out) override {
    out = results;
    return !results.empty();
  }

  bool installed = true;
  bool takes = true;
  PropertyList results{{"IDS.Config.ResultCode", "0"},
                       {"IDS.Config.ResultMessage", "fine"},
                       {"IDS.Policy.ResultCode", "0"},
                       {"IDS.Policy.ResultMessage", "fine"}};
  PropertyList given;
  STRING policy;
};

}  // namespace korvane::tests
