// What must hold at any time in the life of an agent, checked from outside: on the wire, on the
// disk, in the driver, and by the clock.
//
// The machine says what happens to the agent; the server, through ServerWatch, what is exchanged.
// Weather is good when the server's is and the machine does nothing to the agent: no faults of
// disk, driver, translator or component, no pauses. Promises about time hold in good weather only.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tests/simulation/oracle/events.h"
#include "tests/simulation/oracle/model_server.h"
#include "tests/simulation/oracle/policies.h"
#include "tests/simulation/oracle/state_files.h"

namespace korvane::simulation {

class Invariants final : public ServerWatch {
 public:
  // `live` is the disk as the running agent sees it. `root` is the installation root.
  Invariants(Findings& findings, ModelServer& server, EventAccount& account, DriverModel& driver,
             const Policies& policies, DiskView live, std::string root);

  void started(int64_t now);  // before the agent's first call
  void stopAsked(int64_t now);
  // The main routine has returned, and all that a stop may leave behind for a while has gone.
  void stopped(int64_t now, size_t threadsLeft, size_t handlesLeft);
  void killed(int64_t now, bool powerCut);
  void afterKill(const DiskView& survived);
  // The machine's own weather. `diskFault`: a write of the agent failed or was lost.
  void machineWeather(int64_t now, bool good);
  void diskFault() { _diskFault = true; }
  void notified(int64_t now);  // a valid notification: the countdown to the next status restarts
  // The component has left a result without code or message: no status until the next start.
  void updateThreadEnded() { _noStatuses = true; }
  void tick(int64_t now);  // about once a second
  // At the end, in forced good weather: nothing is left to be done.
  bool settled(int64_t now);
  void end(int64_t now);

  void requested(int64_t now, const std::string& word, const std::string& guid) override;
  void status(int64_t now, const Pairs& pairs, bool whole) override;
  void result(int64_t now, const std::string& kind, int code) override;
  void identity(int64_t now, const std::string& guid) override;
  void identityRefused(int64_t now, const std::string& guid) override;
  void configuration(int64_t now, const Pairs& settings, bool hasBadOnes) override;
  void policy(int64_t now, const SentPolicy* policy, bool ids) override;
  void package(int64_t now, const std::string& kind, bool good) override;

 private:
  enum class Life { none, running, stopping };
  struct Owed {  // a report
    std::string kind;
    int64_t until = 0;
    int code = 0;  // -1: any but 0; -2: any
  };
  void checkFirstStatus();
  void checkPolicyReport(const Pairs& pairs);
  void checkSettings(const std::map<std::string, std::string>& found, const std::string& where);
  void checkStateFiles(const DiskView& disk, const std::string& when);
  void checkHeartbeat(int64_t now);
  void checkIdentity(int64_t now);
  void checkOwed(int64_t now);
  bool good(int64_t now) const;
  void owe(int64_t now, const std::string& kind, int code);
  void paid(const std::string& kind, int code);
  void lifeEnded();

  Findings& _findings;
  ModelServer& _server;
  EventAccount& _account;
  DriverModel& _driver;
  const Policies& _policies;
  const DiskView _disk;
  const std::string _root;

  Life _life = Life::none;
  bool _machineGood = true, _diskFault = false, _noStatuses = false;
  bool _lifeDisturbed = false;  // the machine's weather was bad in this life
  int64_t _goodSince = 0;       // -1: it is not
  int64_t _started = 0, _stopAsked = 0, _statusBase = 0;
  bool _statusSeen = false, _told = false;  // told: this gap was already found
  int64_t _interval = 0;                    // the longest that may be in force, ms; 0: no polling
  std::map<std::string, int64_t> _refused;  // identities, and when the agent was told
  std::optional<int64_t> _mustRegister;
  std::vector<Owed> _owed;
  // Settings of the server: confirmed by a result, and sent since.
  std::map<std::string, std::string> _confirmed;
  std::map<std::string, std::vector<std::string>> _sent;
};

}  // namespace korvane::simulation
