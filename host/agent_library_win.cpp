#include "host/agent_library.h"

#include <algorithm>

#include "host/text_win.h"

namespace korvane::host {
namespace {

template <class Function>
bool find(HMODULE library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(reinterpret_cast<void*>(::GetProcAddress(library, name)));
  return function != nullptr;
}

// Win32 looks for a library by full path only when the path is written in its own way.
std::wstring nativePath(const std::string& path) {
  std::wstring native = wide(path);
  std::replace(native.begin(), native.end(), L'/', L'\\');
  return native;
}

}  // namespace

bool loadAgentLibrary(const std::string& path, AgentLibrary& library, std::string& error) {
  // What the library needs comes from the system's folder, never from its own, the current
  // one or the path.
  const HMODULE handle =
      ::LoadLibraryExW(nativePath(path).c_str(), nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
  if (!handle || !find(handle, "startAgent", library.startAgent) ||
      !find(handle, "stopAgent", library.stopAgent) ||
      !find(handle, kShuttingDownSymbol, library.shuttingDown) ||
      !find(handle, kStartedSymbol, library.started)) {
    error = path + ": error " + std::to_string(::GetLastError());
    return false;
  }
  return true;
}

std::string agentLibraryName() {
  return "korvane-agent.dll";
}

}  // namespace korvane::host
