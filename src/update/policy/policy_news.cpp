#include "update/policy/policy_news.h"

#include <atomic>

namespace korvane {
namespace {

std::atomic<uint64_t> newest{0};

}  // namespace

void PolicyNews::note() {
  ++newest;
}

uint64_t PolicyNews::number() {
  return newest;
}

void PolicyNews::reset() {
  newest = 0;
}

}  // namespace korvane
