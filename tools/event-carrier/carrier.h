// A stand-in for the event carrier: it attaches to the agent's event channel, receives notices and
// writes the events to a file where the real one would send them on. docs/event-channel.md has the
// messages and the file.
//
// Lifetime: refers to the platform, which must outlive it. One thread.
// Errors: a file that cannot be written is thrown as FileError. A channel that is missing, or
// closes, is reopened until `stop` is set.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "event-carrier/faults.h"
#include "platform/files.h"
#include "platform/platform.h"
#include "platform/threading.h"
#include "rpc/fifo.h"

namespace korvane::event_carrier {

struct Options {
  std::string pipe;
  std::string out;       // the events' file; none when empty
  uint64_t notices = 0;  // ends after so many acknowledged ones; 0: never
  int64_t delayMs = -1;  // what throttling answers ask for; nothing when negative
  uint32_t slowMs = 0;   // the pause before each signal
  std::vector<std::string> faults;
  uint32_t randomPercent = 0;
  uint64_t seed = 1;
};

class Carrier {
 public:
  Carrier(platform::Platform& system, const Options& options, std::function<bool()> stop);
  // Carries until it is stopped, or has acknowledged as many notices as it was to.
  void run();

 private:
  struct Notice;
  bool done() const;
  bool connect();
  bool attach();
  bool receive(std::string& message);
  void take(const std::string& message);
  void answer(const Notice& notice, Fault fault);
  bool sent(const Notice& notice, Fault fault);
  void keep(const Notice& notice);
  bool acknowledge(const std::string& identifier, const std::string& code);
  bool send(const nlohmann::json& message);
  void pause(uint32_t milliseconds);
  void tell(const char* what, const std::string& identifier, uint64_t events);

  platform::Platform& _system;
  const Options& _options;
  const std::function<bool()> _stop;
  Faults _faults;
  Fifo _pipe;
  const std::unique_ptr<platform::Event> _never;
  std::unique_ptr<platform::File> _file;
  uint64_t _acknowledged = 0;
};

}  // namespace korvane::event_carrier
