#include "host/process_guard.h"

#include <windows.h>

#include <string>

#include "host/messages.h"
#include "host/system_failure_win.h"

namespace korvane::host {
namespace {

template <class Policy>
void set(PROCESS_MITIGATION_POLICY which, Policy policy, const char* what) {
  if (!::SetProcessMitigationPolicy(which, &policy, sizeof policy))
    say("cannot " + std::string(what) + ": " + errorText(::GetLastError()));
}

}  // namespace

void guardProcess() {
  PROCESS_MITIGATION_IMAGE_LOAD_POLICY images{};
  images.NoRemoteImages = images.NoLowMandatoryLabelImages = images.PreferSystem32Images = 1;
  set(ProcessImageLoadPolicy, images, "refuse foreign images");
  PROCESS_MITIGATION_EXTENSION_POINT_DISABLE_POLICY points{};
  points.DisableExtensionPoints = 1;
  set(ProcessExtensionPointDisablePolicy, points, "switch extension points off");
  PROCESS_MITIGATION_STRICT_HANDLE_CHECK_POLICY handles{};
  handles.RaiseExceptionOnInvalidHandleReference = 1;
  handles.HandleExceptionsPermanentlyEnabled = 1;
  set(ProcessStrictHandleCheckPolicy, handles, "have invalid handles told");
}

}  // namespace korvane::host
