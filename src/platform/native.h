// Makes the native implementation of each capability; every one has a sibling per system. Used by
// makeNativePlatform and by tests that want one capability alone. The caller owns the result.
#pragma once

#include <memory>

#include "platform/platform.h"

namespace korvane::platform {

std::unique_ptr<Clock> makeNativeClock();
std::unique_ptr<Threading> makeNativeThreading();
std::unique_ptr<Files> makeNativeFiles();
std::unique_ptr<Sockets> makeNativeSockets();
std::unique_ptr<Processes> makeNativeProcesses();
std::unique_ptr<SystemInfo> makeNativeSystemInfo();
std::unique_ptr<SharedLibraries> makeNativeSharedLibraries();
std::unique_ptr<Devices> makeNativeDevices(const NativeOptions& options);
std::unique_ptr<Pipes> makeNativePipes(const NativeOptions& options);
// Refers to `files` and `devices`, which must outlive it. Windows uses neither.
std::unique_ptr<Registry> makeNativeRegistry(const NativeOptions& options, Files& files,
                                             Devices& devices);

}  // namespace korvane::platform
