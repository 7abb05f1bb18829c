#include "simulate/machine.h"

#include <cerrno>

#include "driver/driver_protocol.h"
#include "driver/driver_values.h"
#include "platform/error_codes.h"
#include "platform/paths.h"

namespace korvane::simulation {

using platform::DataLoss;
using platform::DeviceScript;
using platform::FakeDevices;
using platform::NameLoss;
using platform::OpenMode;

namespace {

WriterPlan planOf(Random& random) {
  WriterPlan plan;
  plan.mostPauseMs = random.oneOf({5000, 60000, 600000});
  return plan;
}

// A record of the driver: its first byte, and texts at their offsets.
std::vector<std::byte> record(size_t size, bool flag,
                              const std::vector<std::pair<size_t, std::string>>& texts) {
  std::vector<std::byte> out(size);
  out[0] = std::byte{flag};
  for (const auto& [offset, text] : texts)
    for (size_t i = 0; i < text.size(); ++i) out[offset + 2 * i] = static_cast<std::byte>(text[i]);
  return out;
}

// The texts between quotation marks.
std::vector<std::string> quoted(const std::string& arguments) {
  std::vector<std::string> texts;
  for (size_t at = 0; (at = arguments.find('"', at)) != std::string::npos;) {
    const size_t end = arguments.find('"', at + 1);
    texts.push_back(arguments.substr(at + 1, end - at - 1));
    at = end + 1;
  }
  return texts;
}

}  // namespace

Machine::Machine(uint64_t seed, platform::SimThreading& of, Findings& findings)
    : sim(of),
      random(seed ^ 0x3AC41E),
      account(findings),
      driver(findings, policies),
      server(seed, findings, policies, account),
      writer(seed, kRoot, account, planOf(random)),
      invariants(findings, server, account, driver, policies, view(), kRoot),
      _begin(of.clock().monotonicMs()),
      _disk(std::make_shared<platform::MemoryFiles>(of.clock())) {
  _recordings.push_back(std::make_unique<platform::RecordingFiles>(*_disk));
  registry.put(kDriverParametersKey, kUseBuiltinValue, STRING("1"));
  registry.put(kDriverParametersKey, kFilterFileValue, STRING());
}

void Machine::processBegins() {
  _recordings.push_back(std::make_unique<platform::RecordingFiles>(*_disk));
}

void Machine::power() {
  static constexpr DataLoss losses[] = {DataLoss::none, DataLoss::all, DataLoss::torn,
                                        DataLoss::zeroed, DataLoss::lastOnly};
  static constexpr NameLoss names[] = {NameLoss::none, NameLoss::all, NameLoss::lastOnly};
  auto survived = std::make_shared<platform::MemoryFiles>(sim.clock());
  platform::RecordingFiles& recording = *_recordings.back();
  const DataLoss loss = losses[random.below(5)];
  recording.crash(recording.size(), loss, names[random.below(3)], *survived);
  // Zeros come with new blocks: what is written over in place has none.
  for (const std::string& path : survived->paths())
    if (loss == DataLoss::zeroed && path.ends_with("filepointer"))
      survived->put(path, _disk->content(path));
  _formerDisks.push_back(std::exchange(_disk, std::move(survived)));
  processBegins();
  const std::string file = parameter(kFilterFileValue);
  driver.booted(file.empty() ? "" : _disk->content(file), parameter(kUseBuiltinValue) != "0");
}

DiskView Machine::view() {
  DiskView view;
  view.read = [this](const std::string& path) { return read(path); };
  view.paths = [this] { return _disk->paths(); };
  view.parameter = [this](const std::string& name) { return parameter(name); };
  return view;
}

std::string Machine::parameter(const std::string& name) {
  STRING value;
  ignoreResult(registry.readString(kDriverParametersKey, name, value));
  return value.toUtf8();
}

DiskTrouble Machine::disk(OpenMode mode, const std::string& what) {
  if (mode == OpenMode::read || !random.chance(troubles.diskPercent)) return {};
  // A pointer that cannot be opened counts as none: the log that it named is not found again.
  if (what.starts_with("open ") && what.ends_with("filepointer")) return {};
  invariants.diskFault();
  const bool torn = what.starts_with("write ") && random.chance(30);
  ++counts[torn ? "torn writes" : "refused changes of the disk"];
  return {random.oneOf({ENOSPC, EIO, EACCES}), torn};
}

DeviceScript Machine::answer(uint32_t error, std::vector<std::byte> output) {
  if (troubles.driver != Troubles::Driver::slow && random.chance(80))
    return DeviceScript::atOnce(error, std::move(output));
  const int ms = troubles.driver == Troubles::Driver::slow ? random.between(100, 5000) : 5;
  return DeviceScript::pending(static_cast<uint32_t>(ms), error, std::move(output));
}

// A change of policy: of the file that the request names, or to the built-in one.
DeviceScript Machine::change(const FakeDevices::Call& call) {
  uint32_t error = platform::kOk;
  if (call.controlCode == KAVIPS_USE_BUILTIN) {
    driver.useBuiltIn();
  } else {
    std::string path;
    for (size_t i = 0; i + 3 < call.input.size(); i += 2) path += static_cast<char>(call.input[i]);
    if (!driver.load(_disk->content(path))) error = 31;
  }
  if (troubles.driver == Troubles::Driver::lies && error == platform::kOk) {
    ++counts["changes of the driver that it denied"];
    driver.deceived();
    return random.chance(50) ? DeviceScript::atOnce(31)
                             : DeviceScript::pending(platform::kInfinite, platform::kOk);
  }
  return answer(error);
}

DeviceScript Machine::drive(const FakeDevices::Call& call, ProcessLine& line) {
  if (line.call("driver request")) return DeviceScript::atOnce(1167);
  if (troubles.driver == Troubles::Driver::refuses) {
    ++counts["refused requests of the driver"];
    return DeviceScript::atOnce(31);
  }
  if (troubles.driver == Troubles::Driver::hangs) {
    ++counts["hanging requests of the driver"];
    return DeviceScript::pending(platform::kInfinite, platform::kOk);
  }
  switch (call.controlCode) {
    case KAVIPS_LOAD_POLICY:
    case KAVIPS_USE_BUILTIN:
      return change(call);
    case KAVIPS_QUERY_REFUSAL:
      return answer(platform::kOk, record(KAVIPS_REFUSAL_BYTES, false,
                                          {{KAVIPS_REFUSAL_TEXT_OFFSET, driver.refusal()}}));
    case KAVIPS_QUERY_POLICY:
      driver.queried();
      return answer(platform::kOk, record(KAVIPS_POLICY_RECORD_BYTES, driver.builtIn(),
                                          {{KAVIPS_POLICY_NAME_OFFSET, driver.name()},
                                           {KAVIPS_POLICY_VERSION_OFFSET, driver.version()},
                                           {KAVIPS_POLICY_ID_OFFSET, driver.id()}}));
    default:
      return answer(platform::kOk);
  }
}

uint32_t Machine::translatorRefusal() {
  if (troubles.translator != Troubles::Translator::notStarted) return platform::kOk;
  ++counts["translators that did not start"];
  return platform::kErrorAccessDenied;
}

platform::ProgramRun Machine::translator(const std::string& arguments) {
  const std::vector<std::string> given = quoted(arguments);
  const size_t count = given.size();
  const std::string source = read(given.at(count - 3)).value_or("");
  Translation made = translate(source, arguments.find("\"-hidsagent\"") != std::string::npos);
  const bool hangs = troubles.translator == Troubles::Translator::hangs;
  if (hangs) {
    ++counts["hanging translators"];
    invariants.updateThreadEnded();
    made.first.resize(made.first.size() / 2);
    made.second.resize(made.second.size() / 2);
  }
  if (made.writesFirst) write(given[count - 2], OpenMode::create, made.first);
  if (made.writesSecond) write(given[count - 1], OpenMode::create, made.second);
  if (hangs) return {made.exitCode, platform::kInfinite};
  const bool slow = troubles.translator == Troubles::Translator::slow;
  return {made.exitCode, static_cast<uint32_t>(slow ? random.between(1000, 20000) : 50)};
}

void Machine::write(const std::string& path, OpenMode mode, const std::string& bytes) {
  std::unique_ptr<platform::File> file;
  if (files().open(path, mode, file)) return;
  ignoreResult(file->write(bytes.data(), bytes.size()));
}

void Machine::append(const std::string& path, const std::string& bytes) {
  const std::string directory = platform::directoryOf(path);
  ignoreResult(files().makeDirectories(directory));
  std::unique_ptr<platform::File> file;
  if (files().open(path, OpenMode::append, file)) return;
  ignoreResult(file->write(bytes.data(), bytes.size()));
  ignoreResult(file->flush());
  ignoreResult(files().flushDirectory(directory));
}

void Machine::replace(const std::string& path, const std::string& bytes) {
  const std::string beside = path + ".component";
  append(beside, bytes);
  ignoreResult(files().replace(beside, path));
  ignoreResult(files().flushDirectory(platform::directoryOf(path)));
}

void Machine::remove(const std::string& path) {
  ignoreResult(files().remove(path));
  ignoreResult(files().flushDirectory(platform::directoryOf(path)));
}

std::optional<std::string> Machine::read(const std::string& path) {
  platform::FileInfo info;
  if (_disk->info(path, info) || info.isDirectory) return std::nullopt;
  return _disk->content(path);
}

void Machine::sum(std::string_view bytes) {
  for (const char byte : bytes) _hash = (_hash ^ static_cast<uint8_t>(byte)) * 1099511628211u;
  _hash = (_hash ^ 0x100) * 1099511628211u;
}

}  // namespace korvane::simulation
