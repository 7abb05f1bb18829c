// The agent of one conversation: a simulated machine with a driver, a translator and a detection
// component that do what the conversation says, and the agent itself once it was started.
//
// A source policy is a text "NAME|VERSION|ID", or with "!translator TEXT" or "!driver TEXT"
// behind it, for which the translator fails or the driver refuses what was made of it; "\n"
// in TEXT is a line end.
//
// A kill keeps what was on the disk, in the registry and in the driver at that moment; what the
// agent does afterwards is thrown away with its machine.
#pragma once

#include <array>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "ids/hids_component.h"
#include "tests/agent/running_agent.h"

namespace korvane::tests {

inline constexpr char kParametersKey[] =
    "System\\CurrentControlSet\\Services\\KAVIPSDriver\\Parameters";

struct Policy {
  std::string name, version, id;
  std::string fault, faultText;  // "translator" or "driver"

  static Policy parse(const std::string& text) {
    Policy policy;
    const size_t mark = text.find(" !");
    std::istringstream fields(text.substr(0, mark));
    std::getline(fields, policy.name, '|');
    std::getline(fields, policy.version, '|');
    std::getline(fields, policy.id);
    if (mark == std::string::npos) return policy;
    std::istringstream fault(text.substr(mark + 2));
    std::getline(fault >> policy.fault >> std::ws, policy.faultText);
    for (size_t at; (at = policy.faultText.find("\\n")) != std::string::npos;)
      policy.faultText.replace(at, 2, "\n");
    return policy;
  }
  std::string text() const { return name + "|" + version + "|" + id; }
};

struct DriverState {
  bool present = false;
  bool builtin = false;
  Policy policy{"Base", "1", "policy-1", "", ""};
  uint32_t builtinRefusal = 0;  // the error that the request for the built-in policy ends with
  bool stalls = false;          // a policy is loaded, but its request never ends
};

struct Remains {
  std::map<std::string, std::string> files;
  std::map<std::string, std::string> parameters;
  uint32_t rebootRequired = 0;
  DriverState driver;
  std::string ids;
  int64_t age = 0;
};

class World {
 public:
  World(const MachineOptions& options, const Remains* remains)
      : machine(options), _answered(machine.sim.createEvent(false, false)) {
    machine.fake.registry.put(kParametersKey, "UseBuiltin", STRING("0"));
    machine.fake.registry.put(kParametersKey, "Filter File", STRING());
    setPrevention(true);
    machine.fake.devices.setHandler([this](const auto& call) { return drive(call); });
    machine.fake.processes.install(std::string(machine.kRoot) + "/IPS/bin/translate",
                                   [this](const std::string& words) { return translate(words); });
    machine.server.setHandler([this](const auto& request) { return serve(request); });
    if (remains) restore(*remains);
  }
  ~World() {
    free = true;
    if (held) answer(Answer::failure(7));
    run.reset();
    AgentConfig::setHIDSInterface(nullptr);
  }

  void start() {
    if (!ids.empty()) AgentConfig::setHIDSInterface(&_component);
    setDriver(driver);
    run = std::make_unique<RunningAgent>(machine);
  }

  void setDriver(const DriverState& state) {
    driver = state;
    machine.fake.devices.setOpenError(state.present ? 0u : platform::kErrorFileNotFound);
  }
  void setReboot(bool outstanding) {
    rebootRequired = outstanding;
    machine.fake.registry.put(kParametersKey, "RebootRequired", rebootRequired);
  }
  void setPrevention(bool on) {
    machine.fake.registry.refuseBelow("Software\\Dalvora\\Intrusion Security\\agent\\IPS",
                                      on ? platform::kErrorAccessDenied : 0u);
  }
  // Answers the exchange that is held.
  void answer(const Answer& with) {
    _answer = with;
    held.reset();
    _answered->set();
  }
  // What a kill at this moment leaves.
  Remains remains() {
    Remains left;
    for (const std::string& path : machine.fake.files.paths())
      if (path.find("/logs/") == std::string::npos)
        left.files[path] = machine.fake.files.content(path);
    for (const char* name : {"UseBuiltin", "Filter File", "PolicyEffectiveDt"}) {
      STRING value;
      if (machine.fake.registry.readString(kParametersKey, name, value) == 0)
        left.parameters[name] = value.toUtf8();
    }
    left.rebootRequired = rebootRequired;
    left.driver = driver;
    left.driver.stalls = false;
    left.ids = ids;
    left.age = machine.now();
    return left;
  }
  // One pass of the detection component.
  void serveIds() {
    for (const std::string kind : {"policy", "config"}) {
      const std::string folder = std::string(machine.kRoot) + "/IDS/";
      std::istringstream request(machine.fake.files.content(folder + kind + ".request"));
      std::string id;
      std::getline(request, id);
      if (ids.empty() || ids == "silent" || id.empty() || id == _idsDone[kind]) continue;
      _idsDone[kind] = id;
      if (ids == "garbled") {
        machine.fake.files.put(folder + kind + ".result", id + "\n");
        continue;
      }
      std::istringstream words(ids == "apply" ? "refuse 0 applied" : ids);
      std::string verb, code, text;
      std::getline(words >> verb >> code >> std::ws, text);
      const std::string prefix = kind == "policy" ? "IDS.Policy." : "IDS.Config.";
      machine.fake.files.put(folder + kind + ".result", id + "\n" + prefix + "ResultCode=" + code +
                                                            "\n" + prefix +
                                                            "ResultMessage=" + text + "\n");
    }
  }

  SimulatedMachine machine;
  DriverState driver;
  std::string ids;
  bool translatorHangs = false;
  uint32_t rebootRequired = 0;
  // Exchanges: held until answered, or answered at once while `free`; those of the connection test
  // and of event forwarding always at once.
  bool free = false;
  std::optional<ScriptedServer::Request> held;
  std::map<std::string, Answer> standing;
  std::map<std::string, size_t> counts;
  std::unique_ptr<RunningAgent> run;

 private:
  Answer serve(const ScriptedServer::Request& request) {
    ++counts[request.path];
    if (free || request.path == "testConnection" || request.path == "log")
      return standing.count(request.path) ? standing[request.path] : Answer();
    held = request;
    while (held) _answered->wait(platform::kInfinite);
    return _answer;
  }

  static void putText(std::vector<std::byte>& record, size_t offset, const std::string& text) {
    for (const char letter : text) {
      record[offset] = static_cast<std::byte>(letter);
      offset += 2;
    }
  }
  platform::DeviceScript drive(const platform::FakeDevices::Call& call) {
    using platform::DeviceScript;
    std::vector<std::byte> record(KAVIPS_POLICY_RECORD_BYTES);
    switch (call.controlCode) {
      case KAVIPS_QUERY_POLICY:
        record[0] = std::byte{driver.builtin};
        putText(record, KAVIPS_POLICY_NAME_OFFSET,
                driver.builtin ? "Built-in" : driver.policy.name);
        putText(record, KAVIPS_POLICY_VERSION_OFFSET, driver.builtin ? "1" : driver.policy.version);
        putText(record, KAVIPS_POLICY_ID_OFFSET, driver.builtin ? "builtin-id" : driver.policy.id);
        return DeviceScript::atOnce(0, record);
      case KAVIPS_QUERY_REFUSAL:
        putText(record, KAVIPS_REFUSAL_TEXT_OFFSET, _refusal);
        return DeviceScript::atOnce(0, record);
      case KAVIPS_USE_BUILTIN:
        if (driver.builtinRefusal) return DeviceScript::pending(1, driver.builtinRefusal);
        driver.builtin = true;
        return DeviceScript::atOnce(0);
      case KAVIPS_LOAD_POLICY:
        return load(call);
      default:
        return DeviceScript::atOnce(0);
    }
  }
  platform::DeviceScript load(const platform::FakeDevices::Call& call) {
    std::string path;
    for (size_t i = 0; i + 3 < call.input.size(); i += 2) path += static_cast<char>(call.input[i]);
    const Policy policy = Policy::parse(machine.fake.files.content(path));
    if (policy.fault == "driver" || policy.name.empty()) {
      _refusal = policy.faultText;
      return platform::DeviceScript::pending(1, 31);
    }
    driver.policy = policy;
    driver.builtin = false;
    return platform::DeviceScript::pending(driver.stalls ? platform::kInfinite : 1, 0);
  }

  platform::ProgramRun translate(const std::string& arguments) {
    std::vector<std::string> quoted;
    std::istringstream words(arguments);
    for (std::string skip, word; std::getline(words, skip, '"') && std::getline(words, word, '"');)
      quoted.push_back(word);
    const size_t n = quoted.size();
    const std::string source = machine.fake.files.content(quoted.at(n - 3));
    const Policy policy = Policy::parse(source);
    const bool fails = policy.fault == "translator";
    machine.fake.files.put(quoted[n - 2], fails ? policy.faultText : source);
    if (!fails) machine.fake.files.put(quoted[n - 1], "korvane-items 1\nend 0\n");
    return {fails ? 3u : 0u, translatorHangs ? platform::kInfinite : 0u};
  }

  void restore(const Remains& left) {
    machine.sim.runFor(left.age);
    for (const auto& [path, bytes] : left.files) machine.fake.files.put(path, bytes);
    for (const auto& [name, value] : left.parameters)
      machine.fake.registry.put(kParametersKey, name, STRING(value));
    setReboot(left.rebootRequired);
    driver = left.driver;
    ids = left.ids;
  }

  HidsComponent _component{{machine.fake.files, machine.sim.clock(), shutdownToken()},
                           std::string(SimulatedMachine::kRoot) + "/IDS",
                           [] { return 10; }};
  std::unique_ptr<platform::Event> _answered;
  Answer _answer;
  std::string _refusal;
  std::map<std::string, std::string> _idsDone;
};

}  // namespace korvane::tests
