#include "platform/fake/fake_processes.h"

#include <algorithm>

#include "platform/error_codes.h"
#include "platform/paths.h"
#include "util/string.h"

namespace korvane::platform {
namespace {

constexpr uint32_t kTerminatedCode = 137;

class FakeProcess final : public Process {
 public:
  FakeProcess(Threading& threading, uint64_t id, ProgramRun run)
      : _id(id), _run(run), _wake(threading.createEvent(true, false)), _ended(run.runMs == 0) {}

  uint64_t id() const override { return _id; }

  ProcessWait wait(uint32_t timeoutMs) override {
    if (_ended) return ProcessWait::ended;
    const bool inTime = _run.runMs != kInfinite && _run.runMs <= timeoutMs;
    if (_wake->wait(inTime ? _run.runMs : timeoutMs) == WaitResult::signalled)
      return ProcessWait::interrupted;
    if (inTime)
      _ended = true;
    else if (_run.runMs != kInfinite)
      _run.runMs -= timeoutMs;
    return inTime ? ProcessWait::ended : ProcessWait::timedOut;
  }

  bool exitCode(uint32_t& out) override {
    if (_ended) out = _run.exitCode;
    return _ended;
  }

  uint32_t terminate() override {
    if (_ended) return kErrorAccessDenied;
    _ended = true;
    _run.exitCode = kTerminatedCode;
    return kOk;
  }

  void interrupt() override { _wake->set(); }

 private:
  const uint64_t _id;
  ProgramRun _run;
  const std::unique_ptr<Event> _wake;
  bool _ended;
};

}  // namespace

uint32_t FakeProcesses::start(const std::string& program, const std::string& arguments,
                              std::unique_ptr<Process>& out) {
  if (!isAbsolutePath(program)) return kErrorInvalidParameter;
  Program body;
  uint64_t id = 0;
  {
    FakeLock lock(_mutex);
    const auto found = _programs.find(program);
    if (found == _programs.end()) return kErrorFileNotFound;
    body = found->second;
    _starts.push_back({program, arguments});
    id = 5000 + _starts.size();
  }
  out = std::make_unique<FakeProcess>(_threading, id, body(arguments));
  return kOk;
}

bool FakeProcesses::isRunning(const std::string& imageName) {
  FakeLock lock(_mutex);
  return std::any_of(_images.begin(), _images.end(), [&](const std::string& image) {
    return STRING(image).equalsIgnoreCase(STRING(imageName));
  });
}

void FakeProcesses::install(const std::string& path, Program program) {
  FakeLock lock(_mutex);
  _programs[path] = std::move(program);
}

void FakeProcesses::setRunning(const std::string& imageName, bool running) {
  FakeLock lock(_mutex);
  if (running)
    _images.insert(imageName);
  else
    _images.erase(imageName);
}

std::vector<FakeProcesses::Start> FakeProcesses::starts() {
  FakeLock lock(_mutex);
  return _starts;
}

}  // namespace korvane::platform
