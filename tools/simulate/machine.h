// The machine that agents live on, process after process: disk, registry, driver, translator and
// the line to the server, each with troubles of its own that the episode turns on and off.
//
// Simulated threads alone; nothing here has a lock.
#pragma once

#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/fake/fake_devices.h"
#include "platform/fake/fake_processes.h"
#include "platform/fake/memory_files.h"
#include "platform/fake/memory_registry.h"
#include "platform/fake/recording_files.h"
#include "platform/fake/sim_threading.h"
#include "simulate/oracle/event_writer.h"
#include "simulate/oracle/invariants.h"
#include "simulate/oracle/model_server.h"
#include "simulate/process.h"

namespace korvane::simulation {

using Counts = std::map<std::string, uint64_t>;

inline constexpr char kRoot[] = "/opt/korvane";

struct Troubles {
  enum class Driver { none, absent, slow, refuses, hangs, lies };
  enum class Translator { none, slow, hangs, notStarted };

  int diskPercent = 0;  // of the changing calls fail
  Driver driver = Driver::none;
  Translator translator = Translator::none;
  bool resolverHangs = false;

  bool any() const {
    return diskPercent || driver != Driver::none || translator != Translator::none || resolverHangs;
  }
};

class Machine final : public DiskForWriter {
 public:
  Machine(uint64_t seed, platform::SimThreading& sim, Findings& findings);

  // A process begins or has ended; power() is gone and back, with what the disk has kept.
  void processBegins();
  void power();

  int64_t now() { return sim.clock().monotonicMs() - _begin; }
  DiskView view();
  // The files that a process works on.
  platform::Files& files() { return *_recordings.back(); }

  // What the machine does for a process.
  DiskTrouble disk(platform::OpenMode mode, const std::string& what);
  platform::DeviceScript drive(const platform::FakeDevices::Call& call, ProcessLine& line);
  platform::ProgramRun translator(const std::string& arguments);
  uint32_t translatorRefusal();

  void append(const std::string& path, const std::string& bytes) override;
  void replace(const std::string& path, const std::string& bytes) override;
  void remove(const std::string& path) override;
  std::optional<std::string> read(const std::string& path) override;

  void tell(std::string what) {
    if (!tells) return;
    for (char& letter : what)
      if (letter == '\0') letter = ' ';
    std::fprintf(stderr, "%9.3f %s\n", static_cast<double>(now()) / 1000, what.c_str());
  }
  // Adds to the sum over everything that was sent and answered.
  void sum(std::string_view bytes);
  uint64_t hash() const { return _hash; }

  platform::SimThreading& sim;
  bool tells = false;
  Random random;
  Troubles troubles;
  Counts counts;                    // faults, by kind
  std::set<std::string> callKinds;  // that processes have made
  platform::MemoryRegistry registry;
  Policies policies;
  EventAccount account;
  DriverModel driver;
  ModelServer server;
  EventWriter writer;
  Invariants invariants;

 private:
  platform::DeviceScript change(const platform::FakeDevices::Call& call);
  platform::DeviceScript answer(uint32_t error, std::vector<std::byte> output = {});
  void write(const std::string& path, platform::OpenMode mode, const std::string& bytes);
  std::string parameter(const std::string& name);

  const int64_t _begin;
  std::shared_ptr<platform::MemoryFiles> _disk;
  // Processes that have ended may still have files open.
  std::vector<std::shared_ptr<platform::MemoryFiles>> _formerDisks;
  std::vector<std::unique_ptr<platform::RecordingFiles>> _recordings;
  uint64_t _hash = 14695981039346656037u;
};

}  // namespace korvane::simulation
