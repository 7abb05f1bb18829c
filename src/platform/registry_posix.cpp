#include "platform/driver_device.h"
#include "platform/error_codes.h"
#include "platform/files.h"
#include "platform/monitor_posix.h"
#include "platform/native.h"
#include "platform/paths.h"
#include "platform/reg_syntax.h"
#include "platform/reg_text.h"
#include "platform/registry.h"
#include "platform/simulator_frames.h"

#include <cerrno>

namespace korvane::platform {
namespace {

constexpr int kLockAttempts = 50;
constexpr uint32_t kLockPauseMs = 10;
constexpr uint32_t kPreventionQueryMs = 1000;
constexpr std::string_view kPreventionKey =
    "Software\\Dalvora\\Intrusion Security\\agent\\IPS\\TestForPrevention";

uint32_t registryError(int error) {
  if (error == ENOENT) return kErrorFileNotFound;
  return error == EACCES || error == EPERM || error == EROFS ? kErrorAccessDenied
                                                             : kErrorGenFailure;
}

bool isPreventionKey(std::string_view key) {
  key = trimRegPath(key);
  if (key.size() < kPreventionKey.size()) return false;
  if (key.size() > kPreventionKey.size() && key[kPreventionKey.size()] != '\\') return false;
  return sameRegName(key.substr(0, kPreventionKey.size()), kPreventionKey);
}

// The registry in a .reg file. What is read is kept until the file's date, size or identity
// differs.
class FileRegistry final : public Registry {
 public:
  FileRegistry(std::string path, Files& files, Devices& devices)
      : _path(std::move(path)), _files(files), _devices(devices) {}

  uint32_t readString(std::string_view key, std::string_view name, STRING& out) override {
    MonitorLock lock(_monitor);
    const RegItem* item = nullptr;
    if (const uint32_t error = find(key, name, RegItem::Kind::string, item)) return error;
    out = item->text;
    return kOk;
  }

  uint32_t readDword(std::string_view key, std::string_view name, uint32_t& out) override {
    MonitorLock lock(_monitor);
    const RegItem* item = nullptr;
    if (const uint32_t error = find(key, name, RegItem::Kind::dword, item)) return error;
    out = item->number;
    return kOk;
  }

  uint32_t writeString(std::string_view key, std::string_view name, const STRING& value) override {
    if (!isRegName(name)) return kErrorInvalidParameter;
    return change(key, [&](RegDocument& document) {
      if (!document.hasKey(key)) return kErrorFileNotFound;
      document.setString(key, name, value);
      return kOk;
    });
  }

  uint32_t writeDword(std::string_view key, std::string_view name, uint32_t value) override {
    if (!isRegName(name)) return kErrorInvalidParameter;
    return change(key, [&](RegDocument& document) {
      if (!document.hasKey(key)) return kErrorFileNotFound;
      document.setDword(key, name, value);
      return kOk;
    });
  }

  uint32_t createKey(std::string_view key) override {
    if (isPreventionKey(key) && preventionInForce()) return kErrorAccessDenied;
    return change(key, [&](RegDocument& document) {
      document.addKey(key);
      return kOk;
    });
  }

  uint32_t deleteKey(std::string_view key) override {
    return change(key, [&](RegDocument& document) {
      if (!document.hasKey(key)) return kErrorFileNotFound;
      if (document.hasSubkeys(key)) return kErrorAccessDenied;
      document.removeKey(key);
      return kOk;
    });
  }

  std::string problem() override {
    MonitorLock lock(_monitor);
    refresh();
    return _problem;
  }

 private:
  uint32_t find(std::string_view key, std::string_view name, RegItem::Kind kind,
                const RegItem*& item) REQUIRES(_monitor) {
    if (const uint32_t error = refresh()) return error;
    item = _document.find(key, name);
    if (!item) return kErrorFileNotFound;
    return item->kind == kind ? kOk : kErrorInvalidData;
  }

  // Brings _document up to date; 0 also when there is no file yet.
  uint32_t refresh() REQUIRES(_monitor) {
    FileInfo info;
    const int error = _path.empty() ? ENOENT : _files.info(_path, info);
    if (error == ENOENT) {
      forget();
      return kOk;
    }
    if (error)
      return fail("cannot be looked at, error " + std::to_string(error), registryError(error));
    if (_loaded && info.size == _seen.size && info.modifiedNs == _seen.modifiedNs &&
        info.identity == _seen.identity)
      return _state;
    forget();
    std::string bytes;
    if (const int unread = readWholeFile(_files, _path, RegDocument::kMaxBytes, bytes))
      return fail("cannot be read, error " + std::to_string(unread), registryError(unread));
    _loaded = true;
    _seen = info;
    if (const std::string wrong = _document.parse(bytes); !wrong.empty())
      return _state = fail(wrong, kErrorBadDatabase);
    return kOk;
  }

  void forget() REQUIRES(_monitor) {
    _document = RegDocument();
    _problem.clear();
    _loaded = false;
    _state = kOk;
  }

  uint32_t fail(const std::string& what, uint32_t error) REQUIRES(_monitor) {
    _problem = _path + ": " + what;
    return error;
  }

  // Runs `apply` on the present content, under the lock between processes, and writes the result
  // unless it has grown past what the format takes.
  template <class Apply>
  uint32_t change(std::string_view key, Apply apply) {
    if (_path.empty()) return kErrorAccessDenied;
    if (!isRegName(key)) return kErrorInvalidParameter;
    MonitorLock lock(_monitor);
    std::unique_ptr<FileLock> fileLock;
    if (const uint32_t error = acquireFileLock(lock, fileLock)) return error;
    if (const uint32_t error = refresh()) return error;
    const std::string before = _document.format();
    if (const uint32_t error = apply(_document)) return error;
    const std::string after = _document.format();
    if (after == before) return kOk;
    if (!RegDocument().parse(after).empty()) {
      _loaded = false;
      return kErrorNotEnoughMemory;
    }
    const int error = writeFileAtomically(_files, _path, after);
    _loaded = false;
    return error ? registryError(error) : kOk;
  }

  uint32_t acquireFileLock(MonitorLock& lock, std::unique_ptr<FileLock>& out) REQUIRES(_monitor) {
    for (int attempt = 1;; ++attempt) {
      const int error = _files.lock(_path + ".lock", out);
      if (error == 0) return kOk;
      if (error != EACCES) return registryError(error);
      if (attempt == kLockAttempts) return kErrorSharingViolation;
      const Deadline pause(kLockPauseMs);
      while (lock.waitUntil(pause)) continue;
    }
  }

  bool preventionInForce() {
    std::unique_ptr<Device> device;
    std::unique_ptr<DeviceRequest> request;
    if (_devices.open("\\\\.\\KAVIPS", device) != kOk) return false;
    if (device->prepare(kSimulatorPreventionQuery, {}, sizeof(uint32_t), request) != kOk)
      return false;
    uint32_t error = request->issue();
    if (error == kErrorIoPending && request->wait(kPreventionQueryMs) == DeviceWait::signalled)
      error = request->result();
    if (error != kOk) return false;
    for (const std::byte byte : request->output())
      if (byte != std::byte{0}) return true;
    return false;
  }

  const std::string _path;
  Files& _files;
  Devices& _devices;
  Monitor _monitor;
  RegDocument _document GUARDED_BY(_monitor);
  FileInfo _seen GUARDED_BY(_monitor);
  bool _loaded GUARDED_BY(_monitor) = false;
  uint32_t _state GUARDED_BY(_monitor) = kOk;
  std::string _problem GUARDED_BY(_monitor);
};

}  // namespace

std::unique_ptr<Registry> makeNativeRegistry(const NativeOptions& options, Files& files,
                                             Devices& devices) {
  return std::make_unique<FileRegistry>(options.registryFile, files, devices);
}

}  // namespace korvane::platform
