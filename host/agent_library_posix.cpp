#include <dlfcn.h>

#include "host/agent_library.h"

namespace korvane::host {
namespace {

template <class Function>
bool find(void* library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(dlsym(library, name));
  return function != nullptr;
}

}  // namespace

bool loadAgentLibrary(const std::string& path, AgentLibrary& library, std::string& error) {
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle || !find(handle, "startAgent", library.startAgent) ||
      !find(handle, "stopAgent", library.stopAgent) ||
      !find(handle, kShuttingDownSymbol, library.shuttingDown) ||
      !find(handle, kStartedSymbol, library.started)) {
    error = dlerror();
    return false;
  }
  return true;
}

std::string agentLibraryName() {
  return "libkorvane-agent.so";
}

}  // namespace korvane::host
