// What a simulated thread runs on: a stack of its own, and all that belongs to a thread beside it.
// One context of a simulation runs at a time; it says itself who goes on.
//
// There are two kinds, chosen when the program is built. Fibers share the thread that made the
// simulation; what the program keeps in thread-local storage, errno and the exceptions under way
// are changed along with the stack. Real threads wait until it is their turn; they are what the
// sanitizers know and what Windows has. Both go the same ways for one seed.
//
// A fiber that blocks its thread blocks the simulation. No lock of the language may be held while
// another context goes on: threads would hang, and fibers would find a recursive mutex their own.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "platform/fwd.h"

namespace korvane::platform {

class SimContext {
 public:
  // Runs once; gives the context that goes on after its end. It must not throw.
  using Body = std::function<SimContext&()>;

  virtual ~SimContext() = default;
  // The calling thread's own.
  [[nodiscard]] static std::unique_ptr<SimContext> ofCaller(Threading& native);
  // A new one; its body begins when it is first told to go on. Null when the system refuses it.
  [[nodiscard]] static std::unique_ptr<SimContext> make(Threading& native, uint32_t stackBytes,
                                                        Body body);

  // Lets `next` go on; returns when one of the others lets this one go on. For this context alone.
  virtual void switchTo(SimContext& next) = 0;
  // Waits until one whose body has returned is gone from the system too.
  virtual void join() = 0;
};

}  // namespace korvane::platform
