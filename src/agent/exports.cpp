#include "agent/exports.h"

#include <cstdio>

#include "agent/composition.h"
#include "agent/session.h"

korvane::AgentInfo* startAgent() {
  std::setvbuf(stdout, nullptr, _IONBF, 0);
  return korvane::runSession(&korvane::adoptNativePlatform);
}

const char* stopAgent() {
  korvane::endSession();
  return "The agent STOPPED and returned";
}
