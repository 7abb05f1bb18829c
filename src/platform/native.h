// Makes the native implementation of each capability; every one has a sibling per system. Used by
// makeNativePlatform and by tests that want one capability alone. The caller owns the result.
#pragma once

#include <memory>

#include "platform/platform.h"

namespace korvane::platform {

std::unique_ptr<Clock> makeNativeClock();
[[nodiscard]] std::unique_ptr<Threading> makeNativeThreading();
[[nodiscard]] std::unique_ptr<Files> makeNativeFiles();
[[nodiscard]] std::unique_ptr<Sockets> makeNativeSockets();
[[nodiscard]] std::unique_ptr<Processes> makeNativeProcesses();
[[nodiscard]] std::unique_ptr<SystemInfo> makeNativeSystemInfo();
[[nodiscard]] std::unique_ptr<SharedLibraries> makeNativeSharedLibraries();
[[nodiscard]] std::unique_ptr<Devices> makeNativeDevices(const NativeOptions& options);
[[nodiscard]] std::unique_ptr<Survey> makeNativeSurvey();
[[nodiscard]] std::unique_ptr<Pipes> makeNativePipes(const NativeOptions& options);
[[nodiscard]] std::unique_ptr<Rights> makeNativeRights(const NativeOptions& options);
// Refers to `files` and `devices`, which must outlive it. Windows uses neither.
[[nodiscard]] std::unique_ptr<Registry> makeNativeRegistry(const NativeOptions& options,
                                                           Files& files, Devices& devices);

}  // namespace korvane::platform
