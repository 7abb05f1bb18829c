#include "update/policy/policy_news.h"

#include <atomic>

#include "util/agent_run.h"

namespace korvane {
namespace {

struct News {
  std::atomic<uint64_t> newest{0};
};

std::atomic<uint64_t>& newest() {
  return AgentRun::current().part<News>(RunPart::policyNews).newest;
}

}  // namespace

void PolicyNews::note() {
  ++newest();
}

uint64_t PolicyNews::number() {
  return newest();
}

}  // namespace korvane
