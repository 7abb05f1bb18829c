#include "host/host_events.h"

#include <cstdlib>

#include "host/system_failure_win.h"
#include "host/text_win.h"

namespace korvane::host {
namespace {

HANDLE stopEvent = nullptr;
HANDLE endedEvent = nullptr;
HANDLE leftEvent = nullptr;  // set when the object is destroyed

HANDLE makeEvent(bool manualReset) {
  const HANDLE event = ::CreateEventW(nullptr, manualReset, /*bInitialState=*/FALSE, nullptr);
  if (!event) std::abort();
  return event;
}

HANDLE stopEventNamed(const std::string& name) {
  if (name.empty()) return makeEvent(/*manualReset=*/false);
  const HANDLE event =
      ::CreateEventW(nullptr, /*bManualReset=*/FALSE, /*bInitialState=*/FALSE, wide(name).c_str());
  if (!event) throw systemFailure("make the stop event " + name);
  return event;
}

// Runs on a thread of the system's. The process is ended when it returns from anything but
// Ctrl-C and Ctrl-Break.
BOOL WINAPI onConsoleControl(DWORD control) {
  ::SetEvent(stopEvent);
  if (control != CTRL_C_EVENT && control != CTRL_BREAK_EVENT)
    ::WaitForSingleObject(leftEvent, INFINITE);
  return TRUE;
}

}  // namespace

HostEvents::HostEvents(StopRequests requests, const std::string& name) {
  stopEvent = stopEventNamed(name);
  endedEvent = makeEvent(/*manualReset=*/false);
  leftEvent = makeEvent(/*manualReset=*/true);
  if (requests == StopRequests::fromTerminal) ::SetConsoleCtrlHandler(onConsoleControl, TRUE);
}

// The events stay: the system's thread may still wait for one.
HostEvents::~HostEvents() {
  ::SetEvent(leftEvent);
  ::SetConsoleCtrlHandler(onConsoleControl, FALSE);
}

HostEvent HostEvents::wait(uint32_t timeoutMs) {
  const HANDLE events[] = {stopEvent, endedEvent};
  switch (::WaitForMultipleObjects(2, events, /*bWaitAll=*/FALSE, timeoutMs)) {
    case WAIT_OBJECT_0:
      return HostEvent::stopRequested;
    case WAIT_OBJECT_0 + 1:
      return HostEvent::agentEnded;
    default:
      return HostEvent::nothing;
  }
}

void HostEvents::requestStop() {
  ::SetEvent(stopEvent);
}

void HostEvents::agentEnded() {
  ::SetEvent(endedEvent);
}

void setEnvironment(const char* name, const std::string& value) {
  ::SetEnvironmentVariableW(wide(name).c_str(), wide(value).c_str());
}

std::string programPath() {
  std::wstring path(MAX_PATH, L'\0');
  DWORD size = 0;
  while ((size = ::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()))) ==
         path.size())
    path.resize(path.size() * 2);
  path.resize(size);
  return narrow(path);
}

std::string programDirectory() {
  const std::string path = programPath();
  return path.substr(0, path.find_last_of('\\'));
}

}  // namespace korvane::host
