#include "rpc/fifo.h"

#include <algorithm>
#include <cstring>

#include "eventlog/event_log.h"
#include "platform/clock.h"
#include "platform/error_codes.h"
#include "rpc/fifo_frame.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

using namespace platform;

constexpr uint32_t kStepMs = 100;
constexpr int kLeastWaitMs = 20;
constexpr int kPassOverMs = 1000;
constexpr char kSource[] = "RPC";

bool isReset(uint32_t error) {
  return error == kErrorBrokenPipe || error == kErrorNoData || error == kErrorPipeNotConnected;
}

bool isBusy(uint32_t error) {
  return error == kErrorPipeBusy || error == kErrorPipeListening;
}

// How long something has gone on.
class Elapsed {
 public:
  explicit Elapsed(Clock& clock) : _clock(clock), _start(clock.monotonicMs()) {}
  int ms() const { return static_cast<int>(_clock.monotonicMs() - _start); }

 private:
  Clock& _clock;
  const int64_t _start;
};

}  // namespace

Fifo::Fifo(Pipes& pipes, Clock& clock, std::string name, Limits limits, PipeAudience audience)
    : _pipes(pipes), _clock(clock), _name(std::move(name)), _limits(limits), _audience(audience) {
  // Once, so that a system that has no lock to give refuses the object and not its destruction.
  const Synchronized made(_lock);
}

Fifo::~Fifo() {
  closePipe();
}

bool Fifo::create() {
  if (_server && _pipe) return renew();
  closePipe();
  _server = true;
  std::unique_ptr<Pipe> pipe;
  const uint32_t error = _name.empty() ? kErrorInvalidName : _pipes.create(_name, _audience, pipe);
  return adopt(error, std::move(pipe));
}

void Fifo::close() {
  closePipe();
}

bool Fifo::open() {
  if (_pipe) return true;
  std::unique_ptr<Pipe> pipe;
  const uint32_t error = _pipes.open(_name, pipe);
  return adopt(error, std::move(pipe));
}

bool Fifo::adopt(uint32_t error, std::unique_ptr<Pipe> pipe) {
  _lastError = error;
  if (error != kOk) {
    eventlog::trace(kSource, "The pipe [%s] cannot be %s, error = [%d]", _name,
                    _server ? "created" : "opened", static_cast<int>(error));
    return false;
  }
  ++_connection;
  _pipe = std::move(pipe);
  Synchronized held(_lock);
  _interruptible = _pipe.get();
  if (_interrupted) _interruptible->interrupt();
  return true;
}

void Fifo::closePipe() {
  {
    Synchronized held(_lock);
    _interruptible = nullptr;
  }
  _pipe.reset();
  _received.clear();
}

bool Fifo::renew() {
  _received.clear();
  ++_connection;
  const uint32_t error = _pipe->renew();
  if (error == kOk) return true;
  closePipe();
  return adopt(error, nullptr);
}

void Fifo::reset() {
  eventlog::trace(kSource, "Pipe was reset");
  // A pipe that cannot be made now is made by the next use.
  if (_server)
    ignoreResult(create());
  else
    closePipe();
}

void Fifo::interrupt() {
  Synchronized held(_lock);
  _interrupted = true;
  if (_interruptible) _interruptible->interrupt();
}

bool Fifo::hasPeer() {
  size_t count = 0;
  const uint32_t error = available(count);
  return error == kOk || isReset(error);
}

bool Fifo::peerIsAdministrator() {
  return _pipe && _pipe->peerIsAdministrator();
}

// Without a pipe there is nothing that a step could wait for.
bool Fifo::step(PipeEvent event, int leftMs) {
  if (!_pipe) return false;
  const uint32_t ms =
      _pipe->wakes() ? static_cast<uint32_t>(std::clamp(leftMs, int{kStepMs}, 1000)) : kStepMs;
  return _pipe->wait(event, ms) != PipeWait::interrupted;
}

uint32_t Fifo::available(size_t& count) {
  count = _received.size();
  if (!_pipe) return kErrorInvalidHandle;
  return count > 0 ? kOk : _pipe->peek(count);
}

bool Fifo::waitForData(int timeoutMs) {
  const Elapsed elapsed(_clock);
  for (;;) {
    size_t count = 0;
    const uint32_t error = available(count);
    if (error == kOk && count > 0) return true;
    if (error == kErrorInvalidHandle) {
      eventlog::trace(kSource, "Peek Pipe [%s] error = [%d]", _name, static_cast<int>(error));
      return false;
    }
    if (isReset(error)) reset();
    if (_pipe && !step(PipeEvent::readable, timeoutMs - elapsed.ms())) return false;
    if (elapsed.ms() >= timeoutMs) return false;
  }
}

// Takes what has come of `count` bytes. Left in the pipe, a part of them would end every
// wait for more.
uint32_t Fifo::gather(size_t count) {
  size_t ready = 0;
  if (!_pipe) return kErrorInvalidHandle;
  if (_received.size() >= count) return kOk;
  if (const uint32_t error = _pipe->peek(ready)) return error;
  const size_t had = _received.size();
  size_t got = 0;
  _received.resize(had + std::min(ready, count - had));
  const uint32_t error =
      ready > 0 ? _pipe->read(_received.data() + had, _received.size() - had, got) : kOk;
  _received.resize(had + got);
  return error;
}

int Fifo::readBytes(void* buffer, size_t count, int timeoutMs) {
  const Elapsed elapsed(_clock);
  for (;;) {
    const uint32_t error = gather(count);
    if (error == kOk && _received.size() >= count) {
      std::memcpy(buffer, _received.data(), count);
      _received.erase(0, count);
      return static_cast<int>(count);
    }
    if (error != kOk) {
      eventlog::trace(kSource, "RPC Read PeekNamedPipe error: %d", static_cast<int>(error));
      if (isReset(error)) reset();
      if (!isBusy(error)) return kPipeFailure;
    }
    if (elapsed.ms() > timeoutMs) {
      eventlog::trace(kSource, "RPC Read timeout : %d", elapsed.ms());
      return kTimeout;
    }
    if (!step(PipeEvent::readable)) return kPipeFailure;
  }
}

int Fifo::writeBytes(const void* buffer, size_t count, int timeoutMs) {
  const Elapsed elapsed(_clock);
  for (;;) {
    size_t written = 0;
    const uint32_t error = _pipe ? _pipe->write(buffer, count, written) : kErrorInvalidHandle;
    if (error == kOk && written > 0) return static_cast<int>(written);
    if (error != kOk) {
      eventlog::trace(kSource, "RPC WriteFile error: %d", static_cast<int>(error));
      if (isReset(error)) reset();
      if (!isBusy(error)) return kPipeFailure;
    }
    if (elapsed.ms() > timeoutMs) {
      eventlog::trace(kSource, "RPC Write timeout : %d", elapsed.ms());
      return kTimeout;
    }
    if (!step(PipeEvent::writable)) return kPipeFailure;
  }
}

int Fifo::untilDeadline(int timeoutMs, int64_t deadline) {
  return static_cast<int>(std::clamp<int64_t>(deadline - _clock.monotonicMs(), 0, timeoutMs));
}

bool Fifo::endRead(ReadEnd end) {
  _lastRead = end;
  return end == ReadEnd::message;
}

bool Fifo::readFrame(int readTimeoutMs, int64_t deadline) {
  _frame.resize(kFrameBytes);
  const uint64_t connection = _connection;
  const int got = readBytes(_frame.data(), kFrameBytes, untilDeadline(readTimeoutMs, deadline));
  if (got == static_cast<int>(kFrameBytes) && _clock.monotonicMs() <= deadline) return true;
  return endRead(_pipe && connection == _connection ? ReadEnd::stalled : ReadEnd::reset);
}

bool Fifo::readHeader(int waitMs, int readTimeoutMs, int64_t deadline) {
  const Elapsed elapsed(_clock);
  while (readFrame(readTimeoutMs, deadline)) {
    if (beginsMessage(_frame.data())) return true;
    const bool goesOn = elapsed.ms() < std::max(waitMs, kPassOverMs);
    if (!goesOn || !waitForData(waitMs)) return endRead(ReadEnd::nothing);
  }
  return false;
}

// Who it is counts only where it makes a difference.
uint32_t Fifo::receivableBytes(uint32_t length) {
  const bool ordinary = _server && length > _limits.ordinaryBytes && !peerIsAdministrator();
  return ordinary ? _limits.ordinaryBytes : _limits.messageBytes;
}

bool Fifo::readMessage(std::string& out, int waitMs, int readTimeoutMs) {
  if (waitMs == 0) waitMs = kLeastWaitMs;
  out.clear();
  if (!waitForData(waitMs)) return endRead(ReadEnd::nothing);
  const int64_t deadline = _clock.monotonicMs() + _limits.messageMs;
  if (!readHeader(waitMs, readTimeoutMs, deadline)) return false;
  const uint32_t length = messageLength(_frame.data());
  const uint32_t limit = receivableBytes(length);
  if (length > limit) {
    eventlog::trace(kSource, "A message of %u bytes is refused, the limit is %u", length, limit);
    return endRead(ReadEnd::tooLong);
  }
  out.reserve(length);
  out.append(_frame.data() + kHeaderBytes, std::min(length, kFirstBytes));
  while (out.size() < length) {
    if (!readFrame(readTimeoutMs, deadline)) return false;
    out.append(_frame.data(), std::min(length - out.size(), kFrameBytes));
  }
  return endRead(ReadEnd::message);
}

bool Fifo::writeFrame(int timeoutMs, int64_t deadline) {
  const int written = writeBytes(_frame.data(), kFrameBytes, untilDeadline(timeoutMs, deadline));
  return written == static_cast<int>(kFrameBytes) && _clock.monotonicMs() <= deadline;
}

bool Fifo::writeMessage(const std::string& message, int timeoutMs) {
  if (message.size() > _limits.messageBytes) {
    eventlog::trace(kSource, "A message of %llu bytes is not sent, the limit is %u",
                    uint64_t{message.size()}, _limits.messageBytes);
    return false;
  }
  const int64_t deadline = _clock.monotonicMs() + _limits.messageMs;
  _frame.assign(kFrameBytes, 0);
  putHeader(_frame.data(), static_cast<uint32_t>(message.size()));
  size_t sent = message.copy(_frame.data() + kHeaderBytes, kFirstBytes);
  while (writeFrame(timeoutMs, deadline)) {
    if (sent == message.size()) return true;
    _frame.assign(kFrameBytes, 0);
    sent += message.copy(_frame.data(), kFrameBytes, sent);
  }
  return false;
}

}  // namespace korvane
