// Real threads whose waits of a second take five milliseconds, so that two processes can really
// contend for the lock file without making a test slow.
#pragma once

#include <algorithm>

#include "platform/fake/forwarding.h"

namespace korvane {

class ShortWaits : public platform::ForwardingThreading {
 public:
  using ForwardingThreading::ForwardingThreading;
  std::unique_ptr<platform::Event> createEvent(bool manualReset, bool signalled) override {
    return std::make_unique<ShortEvent>(ForwardingThreading::createEvent(manualReset, signalled));
  }

 private:
  class ShortEvent : public platform::Event {
   public:
    explicit ShortEvent(std::unique_ptr<platform::Event> to) : _to(std::move(to)) {}
    bool set() override { return _to->set(); }
    bool reset() override { return _to->reset(); }
    bool pulse() override { return _to->pulse(); }
    platform::WaitResult wait(uint32_t timeoutMs) override {
      return _to->wait(std::min<uint32_t>(timeoutMs, 5));
    }

   private:
    std::unique_ptr<platform::Event> _to;
  };
};

}  // namespace korvane
