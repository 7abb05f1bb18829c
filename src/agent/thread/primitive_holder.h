// A primitive of this run's platform, made at its first use, so that locks and tokens cost nothing
// until then and can be members of objects that are made early. Threads: any; get() of an existing
// primitive costs one load. Errors: null when the platform refuses.
#pragma once

#include <atomic>
#include <memory>

#include "agent/thread/run_threading.h"

namespace korvane {

// End a primitive without its class being known here.
void deletePrimitive(platform::Event* event);
void deletePrimitive(platform::Mutex* mutex);

template <class Primitive>
class PrimitiveHolder {
 public:
  PrimitiveHolder() = default;
  ~PrimitiveHolder() { deletePrimitive(existing()); }
  PrimitiveHolder(const PrimitiveHolder&) = delete;
  PrimitiveHolder& operator=(const PrimitiveHolder&) = delete;

  // `make` is called with a platform::Threading and gives a unique_ptr<Primitive>.
  template <class Make>
  Primitive* get(Make make) {
    if (Primitive* made = existing()) return made;
    std::unique_ptr<Primitive> mine = make(threadingOfThisRun());
    if (!mine) return nullptr;
    Primitive* first = nullptr;
    if (!_primitive.compare_exchange_strong(first, mine.get(), std::memory_order_acq_rel))
      return first;
    return mine.release();
  }
  // What get() gave, or null.
  Primitive* existing() const { return _primitive.load(std::memory_order_acquire); }

 private:
  std::atomic<Primitive*> _primitive{nullptr};
};

}  // namespace korvane
