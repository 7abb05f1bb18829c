// Counts the allocations of a benchmark program; linking counting_new.cpp replaces operator new.
#pragma once

#include <cstdint>

namespace korvane::bench {

uint64_t allocations();

}  // namespace korvane::bench
