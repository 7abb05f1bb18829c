// Programs that are functions of a test, started as child processes. Thread-safe.
// Lifetime: processes may outlive the object, but not its Threading.
//
//   processes.install("/opt/agent/bin/translate", [&](const std::string& arguments) {
//     files.put("/opt/agent/out.conf", "...");
//     return ProgramRun{.exitCode = 0, .runMs = 50};
//   });
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/fake/fake_lock.h"
#include "platform/processes.h"
#include "platform/threading.h"

namespace korvane::platform {

struct ProgramRun {
  uint32_t exitCode = 0;
  uint32_t runMs = 0;  // how long a wait takes until it has ended; kInfinite: until terminated
};

class FakeProcesses final : public Processes {
 public:
  // Runs at the start, on the starter's thread.
  using Program = std::function<ProgramRun(const std::string& arguments)>;
  struct Start {
    std::string program;
    std::string arguments;
  };

  explicit FakeProcesses(Threading& threading) : _threading(threading) {}

  uint32_t start(const std::string& program, const std::string& arguments,
                 std::unique_ptr<Process>& out) override;
  bool isRunning(const std::string& imageName) override;
  uint64_t currentId() override { return 4242; }
  std::string fileName(const std::string& baseName) const override { return baseName; }

  void install(const std::string& path, Program program);
  // A process of some other program, for isRunning.
  void setRunning(const std::string& imageName, bool running);
  std::vector<Start> starts();

 private:
  Threading& _threading;
  FakeMutex _mutex;
  std::map<std::string, Program> _programs GUARDED_BY(_mutex);
  std::set<std::string> _images GUARDED_BY(_mutex);
  std::vector<Start> _starts GUARDED_BY(_mutex);
};

}  // namespace korvane::platform
