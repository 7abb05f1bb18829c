// A primitive of the platform in use, made at its first use and recreated once another platform has
// become current. So locks and tokens of static lifetime need nothing while the library is loaded
// and never keep what a platform that is gone once made. Threads: any; get() of an existing
// primitive costs two loads. Errors: null when the platform refuses.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include "platform/platform.h"

namespace korvane {

// Ends a primitive without its class being known here.
struct PrimitiveDeleter {
  void operator()(platform::Event* event) const;
  void operator()(platform::Mutex* mutex) const;
};

// Serialises the making of primitives; never held while one of them is waited on.
std::mutex& primitiveRenewalLock();

template <class Primitive>
class PrimitiveHolder {
 public:
  // `make` is called with the current platform::Threading and gives a unique_ptr<Primitive>.
  template <class Make>
  Primitive* get(Make make) {
    if (_generation.load(std::memory_order_acquire) != platform::currentGeneration())
      return renew(make);
    return _primitive.get();
  }
  // What get() gave last, or null.
  Primitive* existing() const { return _primitive.get(); }

 private:
  template <class Make>
  Primitive* renew(Make make) {
    std::lock_guard hold(primitiveRenewalLock());
    const uint64_t generation = platform::currentGeneration();
    if (_generation.load(std::memory_order_relaxed) == generation) return _primitive.get();
    std::unique_ptr<Primitive> made = make(platform::current().threading);
    if (!made) return nullptr;
    _primitive.reset(made.release());
    _generation.store(generation, std::memory_order_release);
    return _primitive.get();
  }

  std::atomic<uint64_t> _generation{UINT64_MAX};
  std::unique_ptr<Primitive, PrimitiveDeleter> _primitive;
};

}  // namespace korvane
