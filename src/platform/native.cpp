#include "platform/native.h"

#include "platform/clock.h"
#include "platform/driver_device.h"
#include "platform/files.h"
#include "platform/pipes.h"
#include "platform/processes.h"
#include "platform/registry.h"
#include "platform/rights.h"
#include "platform/shared_library.h"
#include "platform/sockets.h"
#include "platform/system_info.h"
#include "platform/threading.h"

namespace korvane::platform {
namespace {

class SystemPlatform final : public NativePlatform {
 public:
  explicit SystemPlatform(const NativeOptions& options)
      : _devices(makeNativeDevices(options)),
        _registry(makeNativeRegistry(options, *_files, *_devices)),
        _pipes(makeNativePipes(options)),
        _rights(makeNativeRights(options)) {}

  Platform& platform() override { return _platform; }

 private:
  const std::unique_ptr<Clock> _clock = makeNativeClock();
  const std::unique_ptr<Threading> _threading = makeNativeThreading();
  const std::unique_ptr<Files> _files = makeNativeFiles();
  const std::unique_ptr<Devices> _devices;
  const std::unique_ptr<Registry> _registry;
  const std::unique_ptr<Pipes> _pipes;
  const std::unique_ptr<Rights> _rights;
  const std::unique_ptr<Processes> _processes = makeNativeProcesses();
  const std::unique_ptr<Sockets> _sockets = makeNativeSockets();
  const std::unique_ptr<SystemInfo> _systemInfo = makeNativeSystemInfo();
  const std::unique_ptr<SharedLibraries> _libraries = makeNativeSharedLibraries();
  Platform _platform{*_clock,   *_threading,  *_files,     *_registry, *_devices, *_processes,
                     *_sockets, *_systemInfo, *_libraries, *_pipes,    *_rights};
};

}  // namespace

std::unique_ptr<NativePlatform> makeNativePlatform(const NativeOptions& options) {
  return std::make_unique<SystemPlatform>(options);
}

}  // namespace korvane::platform
