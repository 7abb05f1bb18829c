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

#include "simulate/oracle/events.h"
#include "simulate/oracle/model_server.h"
#include "simulate/oracle/policies.h"
#include "simulate/oracle/state_files.h"

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
  void diskFault() {
    _diskFault = true;
    _account.forgotAll();  // a pointer that cannot be opened counts as none
  }
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
  void configuration(int64_t now, const Pairs& settings, bool ids, bool hasBadOnes) override;
  void policy(int64_t now, const SentPolicy* policy, bool ids) override;
  void package(int64_t now, const std::string& kind, bool good) override;

 private:
  enum class Life { none, running, stopping };
  struct Owed {  // a report
    std::string kind;
    int64_t until = 0;
    int code = 0;    // kFailure, kAnything
    std::string id;  // of the policy, when it must be named
  };
  static constexpr int kFailure = -1, kAnything = -2;

  void found(const std::string& what) { _findings.add(what); }
  void foundOnce(bool& told, const std::string& what);
  void lifeEnded(int64_t now);
  void dropLatest();
  void followWeather(int64_t now);
  int64_t pollingInterval() const;
  void checkFirstStatus();
  void checkPolicyNames(int64_t now, const Pairs& pairs);
  void checkSettings(const std::map<std::string, std::string>& values, const std::string& where);
  void checkStateFiles(const DiskView& disk, const std::string& when);
  void checkTimes(int64_t now);
  void owe(int64_t now, const std::string& kind, int code, const std::string& id = "");
  void paid(const std::string& kind, int code, const std::string& id);
  void lookAtLogs(const DiskView& disk);

  Findings& _findings;
  ModelServer& _server;
  EventAccount& _account;
  DriverModel& _driver;
  const Policies& _policies;
  const DiskView _disk;
  const std::string _root;

  Life _life = Life::none;
  bool _machineGood = true, _diskFault = false, _pointerMayBeLost = false, _noStatuses = false;
  bool _disturbed = false;  // the machine's weather was bad in this life
  int64_t _goodSince = 0;   // -1: it is not
  int64_t _stopAsked = 0;
  int64_t _statusBase = 0;  // from when on the next status is waited for
  int64_t _interval = 0;    // the longest that may be in force, ms; 0: none is due
  // What configurations of this life have set, whether it could be stored or not.
  int64_t _countdownEnds = 0;  // at the latest, of one that began with an interval before
  int64_t _toldInterval = 0;
  std::optional<bool> _toldPolling;
  bool _statusSeen = false, _gapTold = false, _stopTold = false, _registrationTold = false;
  std::map<std::string, int64_t> _refused;  // identities, and when the agent was told
  int64_t _mustRegister = -1;               // since then
  std::vector<Owed> _owed;
  const SentPolicy* _driverHad = nullptr;
  bool _driverWasBuiltIn = true;
  int64_t _driverSince = 0;
  // Settings of the server: in force by the agent's own word, and those that may be since.
  std::map<std::string, std::string> _confirmed, _latest;
  std::map<std::string, std::vector<std::string>> _possible;
};

}  // namespace korvane::simulation
