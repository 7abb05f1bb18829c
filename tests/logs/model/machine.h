// The machine that the model runs on: a disk in memory whose times may be coarse and whose file
// identities may be used again, and of which a process can be cut off at any of its calls.
//
// Lifetime: owns the disk and what it handed out as files(); the watch must outlive it. One thread.
#pragma once

#include <map>
#include <set>

#include "platform/fake/memory_files.h"
#include "platform/fake/seeded_random.h"
#include "tests/logs/model/forwarder.h"

namespace korvane::log_model {

using Random = platform::SeededRandom;

// Told what the living process does with the disk. Identities are the disk's own, never used again.
class DiskWatch {
 public:
  virtual ~DiskWatch() = default;
  virtual void opened(const std::string& path) = 0;
  virtual void readToItsEnd(uint64_t identity) = 0;
  virtual void removing(uint64_t identity, const std::string& how) = 0;  // about to lose its name
};

class ModelMachine final : public Machine {
 public:
  explicit ModelMachine(DiskWatch& watch);

  platform::Files& files() override;
  bool killed() const override { return _life->dead; }
  std::string installRoot() const override { return "/opt/korvane"; }

  // A new process; until then there is none, and files() is dead.
  void beginProcess();
  // Cuts the process off: at its `calls`-th call from now on, 0 at once, negative not at all.
  void killAt(int calls);

  // The component's side: nothing is counted or watched. put() gives the path a new file.
  uint64_t put(const std::string& path, const std::string& bytes);
  void append(const std::string& path, const std::string& bytes);
  void truncate(const std::string& path, const std::string& bytes);  // the same file
  void remove(const std::string& path);
  bool exists(const std::string& path);
  uint64_t size(const std::string& path);
  std::string content(const std::string& path) { return _disk.content(path); }

  int64_t grainMs = 1;  // of modification times; 0: all are equal
  bool reuseIdentities = false;

 private:
  friend class ProcessFiles;
  friend class ProcessFile;
  struct Life {
    bool dead = false;
    int countdown = -1;
  };
  class CoarseClock;

  uint64_t identityOf(const std::string& path);
  uint64_t shown(uint64_t identity);  // what the process sees of it
  void released(uint64_t identity);   // a name or an open file less

  DiskWatch& _watch;
  const std::unique_ptr<platform::Clock> _coarse;
  platform::MemoryFiles _disk;
  std::shared_ptr<Life> _life = std::make_shared<Life>();
  std::vector<std::unique_ptr<platform::Files>> _handedOut;
  std::map<uint64_t, uint64_t> _shown;
  std::set<uint64_t> _free;
  std::map<uint64_t, int> _open;  // files that the process has open
};

}  // namespace korvane::log_model
