#include "driver-simulator/driver_model.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "driver-simulator/process_list.h"
#include "driver/driver_protocol.h"
#include "platform/error_codes.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "platform/registry.h"
#include "util/ignore_result.h"
#include "util/utf8.h"

namespace korvane::simulator {
namespace {

constexpr char kParametersKey[] = "System\\CurrentControlSet\\Services\\KAVIPSDriver\\Parameters";

std::string narrow(const uint16_t* text) {
  std::u16string wide;
  while (*text != 0) wide += static_cast<char16_t>(*text++);
  return utf16ToUtf8(wide);
}

template <size_t N>
void putText(KavipsUnit (&out)[N], const std::string& utf8) {
  const std::u16string text = utf8ToUtf16(utf8);
  std::copy_n(text.begin(), std::min(text.size(), N - 1), out);
}

Reply cutToRoom(std::string output, uint32_t room) {
  if (output.size() <= room) return {platform::kOk, std::move(output), true};
  output.resize(room);
  return {platform::kErrorMoreData, std::move(output), false};
}

template <class Record>
Reply records(const std::vector<Record>& all, uint32_t room) {
  const size_t fitting = std::min(all.size(), room / sizeof(Record));
  std::string output(fitting * sizeof(Record), '\0');
  if (fitting > 0) std::memcpy(output.data(), all.data(), output.size());
  const bool cut = fitting < all.size();
  return {cut ? platform::kErrorMoreData : platform::kOk, std::move(output), !cut};
}

template <size_t Bytes, class Fill>
Reply record(uint32_t room, Fill fill) {
  std::string output(Bytes, '\0');
  fill(reinterpret_cast<uint8_t*>(output.data()));
  return cutToRoom(std::move(output), room);
}

}  // namespace

std::string DriverModel::policyName() const {
  return builtIn() ? "" : narrow(_driver->policy.name);
}

std::string DriverModel::state() const {
  std::string text(KVP_STATE_BYTES, '\0');
  text.resize(kvp_state(&_control, _driver.get(), text.data(), text.size()));
  return text;
}

std::string DriverModel::parameter(const char* name) {
  STRING value;
  // A value that is not there is empty.
  ignoreResult(_system.registry.readString(kParametersKey, name, value));
  return value.toUtf8();
}

void DriverModel::boot(const std::string& policyFile) {
  const std::string flag = parameter("UseBuiltin");
  if (!flag.empty() && flag != "0") return;
  const std::string file = policyFile.empty() ? parameter("Filter File") : policyFile;
  if (!file.empty()) load(file);
}

bool DriverModel::load(const std::string& path) {
  std::string text;
  const int error = platform::readWholeFile(_system.files, path, KVP_MAX_TEXT_BYTES, text);
  if (error != 0) {
    kvp_refuse_file(_driver.get(), error, path.c_str());
    return false;
  }
  return kvp_take_policy(_driver.get(), &_control, {text.data(), text.size()}) == 0;
}

Reply DriverModel::loadRequest(const std::string& input) {
  const auto* const bytes = reinterpret_cast<const uint8_t*>(input.data());
  std::u16string path(kvp_path_units(_driver.get(), bytes, input.size()), u'\0');
  std::memcpy(path.data(), bytes, path.size() * sizeof(char16_t));
  if (path.empty() || !load(utf16ToUtf8(path))) {
    ++_control.refused;
    return {platform::kErrorInvalidData, {}, false};
  }
  ++_control.loaded;
  return {};
}

Reply DriverModel::rollLog(const char* valueName) {
  const std::string path = parameter(valueName);
  std::unique_ptr<platform::File> file;
  if (path.empty() || _system.files.open(path, platform::OpenMode::append, file) != 0)
    return {platform::kErrorPathNotFound, {}, false};
  return {};
}

Reply DriverModel::processSnapshot(uint32_t room) {
  std::vector<KorvaneProcessSnapshot> all;
  for (const ProcessEntry& process : listProcesses()) {
    KorvaneProcessSnapshot& record = all.emplace_back();
    record.processId = process.id;
    record.parentId = process.parent;
    record.recordBytes = sizeof record;
    putText(record.imagePath, process.image);
  }
  return records(all, room);
}

Reply DriverModel::setSnapshot(uint32_t room) {
  std::vector<KorvanePsetSnapshot> all;
  for (uint32_t i = 0; !builtIn() && i < _driver->policy.sets; ++i) {
    KorvanePsetSnapshot& record = all.emplace_back();
    record.number = i + 1;
    record.rules = _driver->policy.set[i].rules;
    putText(record.name, narrow(_driver->policy.set[i].name));
  }
  return records(all, room);
}

Reply DriverModel::handle(uint32_t code, const std::string& input, uint32_t room) {
  switch (code) {
    case KAVIPS_LOAD_POLICY:
      return loadRequest(input);
    case KAVIPS_QUERY_REFUSAL:
      return record<KAVIPS_REFUSAL_BYTES>(
          room, [this](uint8_t* out) { kvp_refusal_record(_driver.get(), out); });
    case KAVIPS_QUERY_POLICY:
      return record<KAVIPS_POLICY_RECORD_BYTES>(
          room, [this](uint8_t* out) { kvp_policy_record(_driver.get(), out); });
    case KAVIPS_USE_BUILTIN:
      kvp_use_builtin(_driver.get());
      return {};
    case KAVIPS_ROLL_LOG:
      return rollLog("Log File");
    case KAVIPS_ROLL_PROFILE_LOG:
      return rollLog("Profile File");
    case KAVIPS_PROCESS_SNAPSHOT:
      return processSnapshot(room);
    case KAVIPS_PSET_SNAPSHOT:
      return setSnapshot(room);
    default:
      return {platform::kErrorInvalidParameter, {}, false};
  }
}

}  // namespace korvane::simulator
