#include "platform/error_codes.h"
#include "platform/native.h"

namespace korvane::platform {
namespace {

// What this build cannot do yet; every call says so.
class NoRegistry final : public Registry {
 public:
  uint32_t readString(std::string_view, std::string_view, STRING&) override {
    return kErrorFileNotFound;
  }
  uint32_t readDword(std::string_view, std::string_view, uint32_t&) override {
    return kErrorFileNotFound;
  }
  uint32_t writeString(std::string_view, std::string_view, const STRING&) override {
    return kErrorAccessDenied;
  }
  uint32_t writeDword(std::string_view, std::string_view, uint32_t) override {
    return kErrorAccessDenied;
  }
  uint32_t createKey(std::string_view) override { return kErrorAccessDenied; }
  uint32_t deleteKey(std::string_view) override { return kErrorFileNotFound; }
};
class NoDevices final : public Devices {
 public:
  uint32_t open(const std::string&, std::unique_ptr<Device>&) override {
    return kErrorFileNotFound;
  }
};
class NoProcesses final : public Processes {
 public:
  uint32_t start(const std::string&, const std::string&, std::unique_ptr<Process>&) override {
    return kErrorNotSupported;
  }
  bool isRunning(const std::string&) override { return false; }
  uint64_t currentId() override { return 0; }
};
class NoSockets final : public Sockets {
 public:
  int startup() override { return kWsaInvalidArgument; }
  void cleanup() override {}
  int createTcp(std::unique_ptr<Socket>&) override { return kWsaInvalidArgument; }
  int resolve(const std::string&, std::vector<std::string>&) override { return kWsaHostNotFound; }
  void shutdownForeign(uint64_t) override {}
};
class NoSystemInfo final : public SystemInfo {
 public:
  std::string hostName() override { return {}; }
  std::string domainName() override { return {}; }
  std::vector<std::string> ipAddresses() override { return {}; }
  std::string osDescription() override { return {}; }
  std::string timeZone() override { return {}; }
  SystemVersion version() override { return {}; }
  bool hasNetworkFilter() override { return true; }
  std::string environment(const std::string&) override { return {}; }
  void adoptUserLocale() override {}
  std::string moduleDirectory() override { return {}; }
};
class NoLibraries final : public SharedLibraries {
 public:
  uint32_t load(const std::string&, std::unique_ptr<SharedLibrary>&, std::string&) override {
    return kErrorNotSupported;
  }
  std::string fileName(const std::string& baseName) const override {
    return "lib" + baseName + ".so";
  }
};

class PosixPlatform final : public NativePlatform {
 public:
  Platform& platform() override { return _platform; }

 private:
  const std::unique_ptr<Clock> _clock = makeNativeClock();
  const std::unique_ptr<Threading> _threading = makeNativeThreading();
  const std::unique_ptr<Files> _files = makeNativeFiles();
  NoRegistry _registry;
  NoDevices _devices;
  NoProcesses _processes;
  NoSockets _sockets;
  NoSystemInfo _systemInfo;
  NoLibraries _libraries;
  Platform _platform{*_clock,    *_threading, *_files,     _registry, _devices,
                     _processes, _sockets,    _systemInfo, _libraries};
};

}  // namespace

std::unique_ptr<NativePlatform> makeNativePlatform(const NativeOptions&) {
  return std::make_unique<PosixPlatform>();
}

}  // namespace korvane::platform
