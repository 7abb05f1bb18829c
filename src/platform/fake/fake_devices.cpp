#include "platform/fake/fake_devices.h"

#include <algorithm>

namespace korvane::platform {

// The wake event stands for the interrupt; a pending request's own time is a wait on it.
class FakeRequest final : public DeviceRequest {
 public:
  FakeRequest(FakeDevices& owner, DeviceScript script, size_t outputSize)
      : _owner(owner),
        _script(std::move(script)),
        _wake(owner._threading.createEvent(true, false)),
        _output(outputSize),
        _leftMs(_script.afterMs) {
    _owner.count(0, 1);
  }
  ~FakeRequest() override { _owner.count(0, -1); }

  uint32_t issue() override {
    if (_script.issueResult != kErrorIoPending) finish(_script.issueResult);
    return _script.issueResult;
  }

  DeviceWait wait(uint32_t timeoutMs) override {
    if (_script.waitOutcome) return *_script.waitOutcome;
    if (_finished) return DeviceWait::signalled;
    const bool inTime = _leftMs != kInfinite && _leftMs <= timeoutMs;
    if (_wake->wait(inTime ? _leftMs : timeoutMs) == WaitResult::signalled)
      return DeviceWait::interrupted;
    if (!inTime) {
      if (_leftMs != kInfinite) _leftMs -= timeoutMs;
      return DeviceWait::timedOut;
    }
    finish(_script.result);
    return DeviceWait::signalled;
  }

  uint32_t result() override { return _finished ? _result : _script.result; }

  void cancel() override {
    if (!_finished) {
      _finished = true;
      _result = kErrorOperationAborted;
    }
  }

  void interrupt() override { _wake->set(); }
  std::span<const std::byte> output() const override { return _output; }

 private:
  void finish(uint32_t result) {
    _finished = true;
    _result = result;
    std::copy_n(_script.output.begin(), std::min(_script.output.size(), _output.size()),
                _output.begin());
  }

  FakeDevices& _owner;
  const DeviceScript _script;
  const std::unique_ptr<Event> _wake;
  std::vector<std::byte> _output;
  uint32_t _leftMs;
  bool _finished = false;
  uint32_t _result = kErrorIoPending;
};

class FakeDevice final : public Device {
 public:
  explicit FakeDevice(FakeDevices& owner) : _owner(owner) { _owner.count(1, 0); }
  ~FakeDevice() override { _owner.count(-1, 0); }

  uint32_t prepare(uint32_t controlCode, std::span<const std::byte> input, size_t outputSize,
                   std::unique_ptr<DeviceRequest>& out) override {
    DeviceScript script = _owner.take({controlCode, {input.begin(), input.end()}, outputSize});
    if (script.prepareError) return script.prepareError;
    out = std::make_unique<FakeRequest>(_owner, std::move(script), outputSize);
    return kOk;
  }

 private:
  FakeDevices& _owner;
};

DeviceScript DeviceScript::atOnce(uint32_t error, std::vector<std::byte> output) {
  DeviceScript script;
  script.issueResult = error;
  script.output = std::move(output);
  return script;
}

DeviceScript DeviceScript::pending(uint32_t afterMs, uint32_t result,
                                   std::vector<std::byte> output) {
  DeviceScript script;
  script.issueResult = kErrorIoPending;
  script.afterMs = afterMs;
  script.result = result;
  script.output = std::move(output);
  return script;
}

DeviceScript DeviceScript::waitEnds(DeviceWait outcome) {
  DeviceScript script = pending(kInfinite, kOk);
  script.waitOutcome = outcome;
  return script;
}

DeviceScript DeviceScript::noEvent(uint32_t error) {
  DeviceScript script;
  script.prepareError = error;
  return script;
}

uint32_t FakeDevices::open(const std::string&, std::unique_ptr<Device>& out) {
  {
    FakeLock lock(_mutex);
    if (_openError) return _openError;
  }
  out = std::make_unique<FakeDevice>(*this);
  return kOk;
}

void FakeDevices::setOpenError(uint32_t error) {
  FakeLock lock(_mutex);
  _openError = error;
}

void FakeDevices::queue(uint32_t controlCode, DeviceScript script) {
  FakeLock lock(_mutex);
  _queues[controlCode].push_back(std::move(script));
}

void FakeDevices::setHandler(Handler handler) {
  FakeLock lock(_mutex);
  _handler = std::move(handler);
}

DeviceScript FakeDevices::take(const Call& call) {
  Handler handler;
  {
    FakeLock lock(_mutex);
    _calls.push_back(call);
    std::deque<DeviceScript>& queue = _queues[call.controlCode];
    if (!queue.empty()) {
      DeviceScript script = std::move(queue.front());
      queue.pop_front();
      return script;
    }
    handler = _handler;
  }
  return (handler ? handler(call) : std::nullopt).value_or(DeviceScript());
}

std::vector<FakeDevices::Call> FakeDevices::calls() {
  FakeLock lock(_mutex);
  return _calls;
}

int FakeDevices::openDevices() {
  FakeLock lock(_mutex);
  return _openDevices;
}

int FakeDevices::openRequests() {
  FakeLock lock(_mutex);
  return _openRequests;
}

void FakeDevices::count(int devices, int requests) {
  FakeLock lock(_mutex);
  _openDevices += devices;
  _openRequests += requests;
}

}  // namespace korvane::platform
