// Bytes allocated and their peak, per account: a thread's allocations and releases go to the
// account that it has taken, 0 to begin with. Linking peak_new.cpp replaces operator new.
#pragma once

#include <cstdint>

namespace korvane::bench {

void takeAccount(int account);  // 0 or 1
int64_t peakBytes(int account);
int64_t bytesNow(int account);
void resetPeak(int account);

}  // namespace korvane::bench
