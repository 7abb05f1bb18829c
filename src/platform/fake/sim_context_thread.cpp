// Simulated threads as real ones: each waits on an event of its own until it is told to go on.
#include "platform/fake/sim_context.h"
#include "platform/threading.h"

namespace korvane::platform {
namespace {

class ThreadContext final : public SimContext {
 public:
  explicit ThreadContext(Threading& native) : _turn(native.createEvent(false, false)) {}

  bool begin(Threading& native, uint32_t stackBytes, Body body) {
    _thread = native.createThread(stackBytes, [this, body = std::move(body)] {
      _turn->wait(kInfinite);
      static_cast<ThreadContext&>(body())._turn->set();
    });
    return _thread != nullptr;
  }

  void switchTo(SimContext& next) override {
    static_cast<ThreadContext&>(next)._turn->set();
    _turn->wait(kInfinite);
  }

  void join() override {
    if (_thread) _thread->join(kInfinite);
  }

 private:
  const std::unique_ptr<Event> _turn;
  std::unique_ptr<NativeThread> _thread;
};

}  // namespace

std::unique_ptr<SimContext> SimContext::ofCaller(Threading& native) {
  return std::make_unique<ThreadContext>(native);
}

std::unique_ptr<SimContext> SimContext::make(Threading& native, uint32_t stackBytes, Body body) {
  auto made = std::make_unique<ThreadContext>(native);
  if (!made->begin(native, stackBytes, std::move(body))) return nullptr;
  return made;
}

}  // namespace korvane::platform
