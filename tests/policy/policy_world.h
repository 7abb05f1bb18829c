// A machine for the policy pipeline: files that forget what was not flushed, a driver that
// loads what lies in a file, a translator that is a function, a server that remembers the
// last status, and a tripwire over every call that leaves the agent. One of them can fail,
// or be the last one that the agent makes.
//
//   Machine machine = installedMachine();
//   PolicyWorld world(machine);
//   world.trip.at = 7;
//   PolicyProcessor policy(policyPartsOfRun());
//   policy.installPolicy(source("B"), properties("B"));
#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "agent/thread/stop_token.h"
#include "comm/https_handler.h"
#include "comm/transport.h"
#include "config/agent_config.h"
#include "config/install_root.h"
#include "config/service_type.h"
#include "driver/driver_protocol.h"
#include "platform/fake/fake_platform.h"
#include "platform/fake/forwarding.h"
#include "platform/fake/forwarding_files.h"
#include "platform/fake/recording_files.h"
#include "update/policy/policy_processor.h"

namespace korvane::tests {

inline constexpr char kDriverKey[] =
    "System\\CurrentControlSet\\Services\\KAVIPSDriver\\Parameters";
inline constexpr char kDriverFolder[] = "/opt/korvane/IPS/driver/";
inline constexpr char kOldPlus[] = "/opt/korvane/IPS/driver/policy1.sbp.zip";
inline constexpr char kOldMinus[] = "/opt/korvane/IPS/driver/policy1..conf";
inline constexpr char kOldItems[] = "/opt/korvane/IPS/driver/policy1..trans";
inline constexpr char kJournal[] = "/opt/korvane/IPS/driver/policy.journal";
inline constexpr char kIni[] = "/opt/korvane/IPS/agent.ini";

// The calls that leave the agent, counted from 1.
struct Tripwire {
  enum class Way {
    fails,
    isTheLast,
    failsLate
  };  // late: a driver that does what it was asked and is silent

  size_t at = 0;
  Way way = Way::fails;
  size_t calls = 0;
  std::string tripped;
  bool dead = false;
  size_t terminated = 0;           // translators that did not end by themselves
  uint32_t translatorTakesMs = 0;  // of a time that passes at once

  bool hit(const std::string& what) {
    if (dead) return true;
    if (++calls != at) return false;
    tripped = what;
    dead = way == Way::isTheLast;
    return true;
  }
};

class TripFile final : public platform::ForwardingFile {
 public:
  TripFile(Tripwire& trip, std::string path, std::unique_ptr<platform::File> to)
      : ForwardingFile(std::move(to)), _trip(trip), _path(std::move(path)) {}
  int read(void* buffer, size_t size, size_t& got) override {
    return _trip.hit("read " + _path) ? EIO : _to->read(buffer, size, got);
  }
  int write(const void* bytes, size_t size) override {
    return _trip.hit("write " + _path) ? ENOSPC : _to->write(bytes, size);
  }
  int truncate(uint64_t size) override {
    return _trip.hit("truncate " + _path) ? EIO : _to->truncate(size);
  }
  int flush() override { return _trip.hit("flush " + _path) ? EIO : _to->flush(); }

 private:
  Tripwire& _trip;
  const std::string _path;
};

class TripFiles final : public platform::ForwardingFiles {
 public:
  TripFiles(Tripwire& trip, platform::Files& to) : ForwardingFiles(to), _trip(trip) {}
  int open(const std::string& path, platform::OpenMode mode,
           std::unique_ptr<platform::File>& out) override {
    if (_trip.hit("open " + path)) return EACCES;
    std::unique_ptr<platform::File> file;
    if (const int error = _to.open(path, mode, file)) return error;
    out = std::make_unique<TripFile>(_trip, path, std::move(file));
    return 0;
  }
  int info(const std::string& path, platform::FileInfo& out) override {
    return _trip.hit("info " + path) ? EIO : _to.info(path, out);
  }
  int replace(const std::string& from, const std::string& to) override {
    return _trip.hit("replace " + to) ? EACCES : _to.replace(from, to);
  }
  int remove(const std::string& path) override {
    return _trip.hit("remove " + path) ? EACCES : _to.remove(path);
  }
  int makeDirectories(const std::string& path) override {
    return _trip.hit("make directories " + path) ? EACCES : _to.makeDirectories(path);
  }
  int list(const std::string& path, std::vector<platform::DirectoryEntry>& out) override {
    return _trip.hit("list " + path) ? EACCES : _to.list(path, out);
  }
  int flushDirectory(const std::string& path) override {
    return _trip.hit("flush directory " + path) ? EIO : _to.flushDirectory(path);
  }

 private:
  Tripwire& _trip;
};

class TripRegistry final : public platform::ForwardingRegistry {
 public:
  TripRegistry(Tripwire& trip, platform::Registry& to) : ForwardingRegistry(to), _trip(trip) {}
  uint32_t readString(std::string_view key, std::string_view name, STRING& out) override {
    return _trip.hit("read registry " + std::string(name)) ? 1009 : _to.readString(key, name, out);
  }
  uint32_t writeString(std::string_view key, std::string_view name, const STRING& value) override {
    return _trip.hit("write registry " + std::string(name)) ? 5 : _to.writeString(key, name, value);
  }

 private:
  Tripwire& _trip;
};

class TripProcess final : public platform::Process {
 public:
  TripProcess(Tripwire& trip, std::unique_ptr<platform::Process> to)
      : _trip(trip), _to(std::move(to)) {}
  uint64_t id() const override { return _to->id(); }
  platform::ProcessWait wait(uint32_t timeoutMs) override {
    if (_trip.hit("wait for the translator")) return platform::ProcessWait::failed;
    if (_trip.translatorTakesMs)
      return timeoutMs < _trip.translatorTakesMs ? platform::ProcessWait::timedOut
                                                 : platform::ProcessWait::ended;
    return _to->wait(timeoutMs);
  }
  bool exitCode(uint32_t& out) override { return !_trip.hit("exit code") && _to->exitCode(out); }
  uint32_t terminate() override {
    ++_trip.terminated;
    return _to->terminate();
  }
  void interrupt() override { _to->interrupt(); }

 private:
  Tripwire& _trip;
  const std::unique_ptr<platform::Process> _to;
};

class TripProcesses final : public platform::ForwardingProcesses {
 public:
  TripProcesses(Tripwire& trip, platform::Processes& to) : ForwardingProcesses(to), _trip(trip) {}
  uint32_t start(const std::string& program, const std::string& arguments,
                 std::unique_ptr<platform::Process>& out) override {
    if (_trip.hit("start the translator")) return 5;
    std::unique_ptr<platform::Process> process;
    if (const uint32_t error = _to.start(program, arguments, process)) return error;
    out = std::make_unique<TripProcess>(_trip, std::move(process));
    return 0;
  }

 private:
  Tripwire& _trip;
};

class TripDevices final : public platform::ForwardingDevices {
 public:
  TripDevices(Tripwire& trip, platform::Devices& to) : ForwardingDevices(to), _trip(trip) {}
  uint32_t open(const std::string& name, std::unique_ptr<platform::Device>& out) override {
    return _trip.hit("open the driver") ? 2 : _to.open(name, out);
  }

 private:
  Tripwire& _trip;
};

// What outlives the agent's process; the driver's state is lost with the machine's power.
struct Machine {
  std::map<std::string, std::string> files;
  STRING filterFile;
  STRING useBuiltin = "0";
  std::string driverPolicy;  // the bytes that it loaded
  bool driverBuiltIn = false;
  std::string fact = "1";  // what a translation depends on
  std::string ended = "the process ended";
};

// A source policy, what the translator makes of it, and how the server describes it.
inline std::string source(const std::string& name, const std::string& trouble = "") {
  return "source " + name + " " + trouble;
}
inline std::string minusOf(const std::string& name, const std::string& fact,
                           const std::string& trouble = "") {
  return "minus " + name + " " + fact + " " + trouble + " whole";
}
inline std::string itemsOf(const std::string& fact) {
  return "korvane-items 1\nenvironment\tpresent\tFACT\t" + fact + "\nend 1\n";
}
inline PropertyList propertiesOf(const std::string& name) {
  return {{"policy.name", name}, {"policy.path", "/policies/" + name}};
}

// Policy A is in force.
inline Machine installedMachine() {
  Machine machine;
  machine.filterFile = kOldMinus;
  machine.driverPolicy = minusOf("A", "1");
  machine.files = {
      {kOldPlus, source("A")},
      {kOldMinus, machine.driverPolicy},
      {kOldItems, itemsOf("1")},
      {"/opt/korvane/IPS/lockFile", ""},
      {kIni, std::string("[Agent]\nagent.id=known\nagent.http.url=https://127.0.0.1:8443/k/\n"
                         "[Driver]\nplus.policy.file=") +
                 kOldPlus + "\npolicy.name=A 1\npolicy.id=id-A\npolicy.path=/policies/A\n"}};
  return machine;
}

class PolicyWorld {
 public:
  explicit PolicyWorld(const Machine& machine, int serviceType = 1) : _machine(machine) {
    for (const auto& [path, bytes] : machine.files) fake.files.put(path, bytes);
    fake.files.makeDirectories(kDriverFolder);
    recording = std::make_unique<platform::RecordingFiles>(fake.files);
    files = std::make_unique<TripFiles>(trip, *recording);
    fake.registry.put(kDriverKey, "Filter File", machine.filterFile);
    fake.registry.put(kDriverKey, "UseBuiltin", machine.useBuiltin);
    fake.systemInfo.variables["FACT"] = machine.fact;
    fake.processes.install("/opt/korvane/IPS/bin/translate",
                           [this](const std::string& arguments) { return translate(arguments); });
    fake.devices.setHandler(
        [this](const platform::FakeDevices::Call& call) { return drive(call); });
    _platform.emplace(platform::Platform{fake.platform().clock, fake.platform().threading, *files,
                                         _registry, _devices, _processes, fake.sockets,
                                         fake.systemInfo, fake.libraries, fake.pipes, fake.rights});
    _current.emplace(*_platform);
    setInstallRoot("/opt/korvane");
    setServiceType(serviceType);
    HttpsHandler::setTransport(std::make_unique<StatusServer>(*this));
    AgentConfig::getInstance();
  }

  // What is left when the process ends here, and all that may be left when the power fails too.
  Machine afterEnd() { return withDisk(fake.files, false); }
  std::vector<Machine> afterPowerLoss() {
    std::vector<Machine> left;
    recording->forEachCrashAfter(recording->size(),
                                 [&](const std::string& state, platform::MemoryFiles& disk) {
                                   left.push_back(withDisk(disk, true));
                                   left.back().ended = "the power failed " + state;
                                 });
    return left;
  }
  // The process has ended, and the next one begins on what it left.
  void restart() {
    AgentConfig::freeInstance();
    trip = {};
    AgentConfig::getInstance();
    trip = {};
  }

  STRING parameter(const char* name) {
    STRING value;
    fake.registry.readString(kDriverKey, name, value);
    return value;
  }
  const std::string& driverPolicy() const { return _machine.driverPolicy; }
  bool driverBuiltIn() const { return _machine.driverBuiltIn; }
  int requests(uint32_t code) {
    int count = 0;
    for (const auto& call : fake.devices.calls()) count += call.controlCode == code;
    return count;
  }
  std::vector<std::string> driverFolder() {
    std::vector<std::string> names;
    for (const std::string& path : fake.files.paths())
      if (path.starts_with(kDriverFolder)) names.push_back(path.substr(sizeof kDriverFolder - 1));
    return names;
  }

  Tripwire trip;
  platform::FakePlatform fake;
  std::unique_ptr<platform::RecordingFiles> recording;
  std::unique_ptr<TripFiles> files;
  std::string lastStatus;  // the body of the last status that the server has seen
  uint32_t translatorRunMs = 0;
  std::function<void()> duringTranslation;
  // Makes of a plus file's content what source() makes, where it is something else.
  std::function<std::string(const std::string&)> readSource;

 private:
  class StatusServer final : public Transport {
   public:
    explicit StatusServer(PolicyWorld& world) : _world(world) {}
    bool open() override { return _open = true; }
    void close() override { _open = false; }
    bool isOpen() const override { return _open; }
    int perform(const TransportRequest& request, TransportSink& sink,
                TransportResult& result) override {
      if (_world.trip.hit("exchange")) return 7;
      _world.lastStatus = std::string(request.body);
      result.httpStatus = 200;
      sink.onHeader("HTTP/1.1 200 OK\r\n");
      sink.onHeader("\r\n");
      sink.onBody("EOF_FLAG\n");
      return 0;
    }

   private:
    PolicyWorld& _world;
    bool _open = false;
  };

  Machine withDisk(platform::MemoryFiles& disk, bool rebooted) {
    Machine machine = _machine;
    machine.files.clear();
    for (const std::string& path : disk.paths()) machine.files[path] = disk.content(path);
    machine.filterFile = parameter("Filter File");
    machine.useBuiltin = parameter("UseBuiltin");
    if (!rebooted) return machine;
    const auto policy = machine.files.find(machine.filterFile.toUtf8());
    machine.driverBuiltIn = machine.useBuiltin == STRING("1") || policy == machine.files.end() ||
                            !policy->second.ends_with(" whole");
    machine.driverPolicy = machine.driverBuiltIn ? "" : policy->second;
    return machine;
  }

  // The argument texts, the marks left out.
  static std::vector<std::string> words(const std::string& arguments) {
    std::vector<std::string> found(1);
    bool quoted = false;
    for (const char c : arguments) {
      if (c == '"')
        quoted = !quoted;
      else if (c == ' ' && !quoted)
        found.emplace_back();
      else
        found.back() += c;
    }
    return found;
  }

  void write(const std::string& path, const std::string& bytes) {
    std::unique_ptr<platform::File> file;
    recording->open(path, platform::OpenMode::create, file);
    file->write(bytes.data(), bytes.size());
  }

  platform::ProgramRun translate(const std::string& arguments) {
    const std::vector<std::string> given = words(arguments);
    const size_t count = given.size();
    const std::string content = fake.files.content(given.at(count - 3));
    std::istringstream plus(readSource ? readSource(content) : content);
    std::string word, name, trouble;
    plus >> word >> name >> trouble;
    if (duringTranslation) duringTranslation();
    if (trouble == "fail") write(given[count - 2], "line one\r\nline two\n");
    if (trouble == "empty") write(given[count - 2], "");
    if (trouble == "fail" || trouble == "empty" || trouble == "silent")
      return {17, translatorRunMs};
    if (trouble == "nothing") return {0, translatorRunMs};
    if (given[count - 5] == "-hidsagent") {
      write(given[count - 1], "ids " + name);
      return {0, translatorRunMs};
    }
    write(given[count - 2], minusOf(name, _machine.fact, trouble));
    if (trouble != "itemless") write(given[count - 1], itemsOf(_machine.fact));
    return {0, translatorRunMs};
  }

  static std::vector<std::byte> record(size_t bytes, bool builtIn,
                                       std::vector<std::pair<size_t, std::string>> texts) {
    std::vector<std::byte> out(bytes);
    out[0] = std::byte{builtIn};
    for (const auto& [offset, text] : texts)
      for (size_t i = 0; i < text.size(); ++i)
        out[offset + 2 * i] = static_cast<std::byte>(text[i]);
    return out;
  }

  // True when the driver has done what it was asked.
  bool load(const std::vector<std::byte>& input) {
    std::string path;
    for (size_t i = 0; i + 3 < input.size(); i += 2) path += static_cast<char>(input[i]);
    const std::string bytes = fake.files.content(path);
    if (!bytes.ends_with(" whole") || bytes.find("refuse") != std::string::npos) return false;
    _machine.driverPolicy = bytes;
    _machine.driverBuiltIn = false;
    return true;
  }

  std::optional<platform::DeviceScript> drive(const platform::FakeDevices::Call& call) {
    using platform::DeviceScript;
    const bool fails = trip.hit("driver request " + std::to_string(call.controlCode & 0xFF));
    if (fails && trip.way != Tripwire::Way::failsLate) return DeviceScript::atOnce(31);
    std::vector<std::byte> output;
    bool done = true;
    if (call.controlCode == KAVIPS_LOAD_POLICY) done = load(call.input);
    if (call.controlCode == KAVIPS_USE_BUILTIN) _machine.driverBuiltIn = true;
    if (call.controlCode == KAVIPS_QUERY_REFUSAL)
      output = record(KAVIPS_REFUSAL_BYTES, false, {{4, "the rules clash"}});
    if (call.controlCode == KAVIPS_QUERY_POLICY) {
      std::istringstream loaded(_machine.driverPolicy);
      std::string word, name, version;
      loaded >> word >> name >> version;
      output = record(KAVIPS_POLICY_RECORD_BYTES, _machine.driverBuiltIn,
                      {{KAVIPS_POLICY_NAME_OFFSET, name},
                       {KAVIPS_POLICY_VERSION_OFFSET, version},
                       {KAVIPS_POLICY_ID_OFFSET, "id-" + name}});
    }
    if (fails) return DeviceScript::waitEnds(platform::DeviceWait::timedOut);
    return DeviceScript::pending(0, done ? 0 : 31, output);
  }

  Machine _machine;
  TripRegistry _registry{trip, fake.registry};
  TripDevices _devices{trip, fake.devices};
  TripProcesses _processes{trip, fake.processes};
  std::optional<platform::Platform> _platform;
  std::optional<platform::CurrentPlatform> _current;
};

}  // namespace korvane::tests
