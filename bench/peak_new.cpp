#include "bench/peak_new.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

// In front of each block stands its size, in as many bytes as keep the block aligned.
constexpr std::size_t kFront = alignof(std::max_align_t);

struct Account {
  std::atomic<int64_t> bytes{0}, peak{0};
};

Account accounts[2];
thread_local int mine = 0;

void* allocate(std::size_t size) {
  auto* block = static_cast<std::size_t*>(std::malloc(size + kFront));
  if (!block) throw std::bad_alloc();
  *block = size;
  Account& account = accounts[mine];
  const int64_t now = account.bytes += static_cast<int64_t>(size);
  int64_t peak = account.peak;
  while (now > peak && !account.peak.compare_exchange_weak(peak, now)) {
  }
  return reinterpret_cast<char*>(block) + kFront;
}

void release(void* memory) {
  if (!memory) return;
  auto* block = reinterpret_cast<std::size_t*>(static_cast<char*>(memory) - kFront);
  accounts[mine].bytes -= static_cast<int64_t>(*block);
  std::free(block);
}

}  // namespace

namespace korvane::bench {

void takeAccount(int account) {
  mine = account;
}
int64_t peakBytes(int account) {
  return accounts[account].peak;
}
int64_t bytesNow(int account) {
  return accounts[account].bytes;
}
void resetPeak(int account) {
  accounts[account].peak = accounts[account].bytes.load();
}

}  // namespace korvane::bench

void* operator new(std::size_t size) {
  return allocate(size);
}
void* operator new[](std::size_t size) {
  return allocate(size);
}
void operator delete(void* memory) noexcept {
  release(memory);
}
void operator delete[](void* memory) noexcept {
  release(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  release(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  release(memory);
}
