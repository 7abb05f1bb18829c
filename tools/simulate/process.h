// A process of the agent on the simulated machine, seen from the system: every call that leaves it
// is counted, can be refused, and can be its last.
//
// A killed process runs on as a ghost, since nothing ends a thread from outside: its calls reach
// nobody, and it is stopped like any other.
#pragma once

#include <functional>
#include <memory>
#include <set>
#include <string>

#include "platform/fake/forwarding.h"
#include "platform/fake/forwarding_files.h"
#include "util/ignore_result.h"

namespace korvane::simulation {

// What the calls of one process share.
class ProcessLine {
 public:
  // `kinds` of calls that processes of the machine have made.
  explicit ProcessLine(std::set<std::string>& kinds) : _kinds(kinds) {}

  // One more call; true when the process is dead, so that the call does nothing.
  bool call(const std::string& what) {
    if (_dead) return true;
    ++_calls;
    if (_kinds.insert(kindOf(what)).second && _kindsLeft > 0 && --_kindsLeft == 0)
      _killAt = _calls + _callsAfter;
    if (_killAt && _calls >= _killAt) kill(what);
    return _dead;
  }
  // The process dies at its n-th call from its start.
  void killAt(uint64_t n) { _killAt = n; }
  // It dies some calls after one of the n-th kind that no process before it has made: so what is
  // done seldom is hit as often as what is done every second.
  void killAtKind(uint64_t n, uint64_t callsAfter) {
    _kindsLeft = n;
    _callsAfter = callsAfter;
  }
  void kill(const std::string& where) {
    if (std::exchange(_dead, true)) return;
    _where = where;
    if (onKill) onKill();
  }
  bool dead() const { return _dead; }
  const std::string& where() const { return _where; }

  std::function<void()> onKill;
  size_t threads = 0, handles = 0;  // that it has

 private:
  // What is called on which file, the numbers of names left out.
  static std::string kindOf(std::string what) {
    std::erase_if(what, [](char letter) { return letter >= '0' && letter <= '9'; });
    return what;
  }

  bool _dead = false;
  uint64_t _calls = 0, _killAt = 0, _kindsLeft = 0, _callsAfter = 0;
  std::set<std::string>& _kinds;
  std::string _where;
};

// What the disk does to a call: 0 nothing, else the error that it ends with.
struct DiskTrouble {
  int error = 0;
  bool torn = false;  // half of a write is done
};
using AskDisk = std::function<DiskTrouble(platform::OpenMode mode, const std::string& what)>;

class ProcessLock;

class ProcessFiles final : public platform::ForwardingFiles {
 public:
  ProcessFiles(ProcessLine& line, AskDisk trouble, platform::Files& to)
      : ForwardingFiles(to), _line(line), _trouble(std::move(trouble)) {}

  int open(const std::string& path, platform::OpenMode mode,
           std::unique_ptr<platform::File>& out) override;
  int lock(const std::string& path, std::unique_ptr<platform::FileLock>& out) override;
  int info(const std::string& path, platform::FileInfo& out) override;
  int replace(const std::string& from, const std::string& to) override;
  int rename(const std::string& from, const std::string& to) override;
  int remove(const std::string& path) override;
  int makeDirectories(const std::string& path) override;
  int list(const std::string& path, std::vector<platform::DirectoryEntry>& out) override;
  int flushDirectory(const std::string& path) override;

  // The system gives back the locks of a process that has died.
  void releaseLocks();

 private:
  friend class ProcessFile;
  friend class ProcessLock;
  // The error of a changing call, 0 for none.
  int change(const std::string& what);

  ProcessLine& _line;
  const AskDisk _trouble;
  std::set<ProcessLock*> _locks;
};

class ProcessRegistry final : public platform::ForwardingRegistry {
 public:
  // `isProtected`: a key that the driver lets nobody make.
  ProcessRegistry(ProcessLine& line, std::function<bool(std::string_view key)> isProtected,
                  platform::Registry& to)
      : ForwardingRegistry(to), _line(line), _isProtected(std::move(isProtected)) {}
  uint32_t readString(std::string_view key, std::string_view name, STRING& out) override;
  uint32_t readDword(std::string_view key, std::string_view name, uint32_t& out) override;
  uint32_t writeString(std::string_view key, std::string_view name, const STRING& value) override;
  uint32_t writeDword(std::string_view key, std::string_view name, uint32_t value) override;
  uint32_t createKey(std::string_view key) override;
  uint32_t deleteKey(std::string_view key) override;

 private:
  ProcessLine& _line;
  const std::function<bool(std::string_view key)> _isProtected;
};

// Its own threads, counted until they are gone.
class ProcessThreads final : public platform::ForwardingThreading {
 public:
  ProcessThreads(ProcessLine& line, platform::Threading& to)
      : ForwardingThreading(to), _line(line) {}
  std::unique_ptr<platform::NativeThread> createThread(uint32_t stack,
                                                       std::function<void()> body) override;

 private:
  ProcessLine& _line;
};

// Its children, which a translator out of order keeps from starting.
class ProcessChildren final : public platform::ForwardingProcesses {
 public:
  ProcessChildren(ProcessLine& line, std::function<uint32_t()> refusal, platform::Processes& to)
      : ForwardingProcesses(to), _line(line), _refusal(std::move(refusal)) {}
  uint32_t start(const std::string& program, const std::string& arguments,
                 std::unique_ptr<platform::Process>& out) override;

 private:
  ProcessLine& _line;
  const std::function<uint32_t()> _refusal;
};

}  // namespace korvane::simulation
