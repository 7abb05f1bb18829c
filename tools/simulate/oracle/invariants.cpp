#include "simulate/oracle/invariants.h"

#include <algorithm>
#include <cstdlib>

namespace korvane::simulation {

namespace {

constexpr int64_t kStopMs = 2000;
// What may still hang when good weather begins: a transfer, for 300 s, and a pause behind it.
constexpr int64_t kRecoveryMs = 340000;
// For exchanges and cycles that are longer than a second in good weather too.
constexpr int64_t kSlackMs = 30000;
constexpr int64_t kRegistrationMs = 60000;
constexpr int64_t kReportMs = 180000;
constexpr int64_t kForgetsIdentityMs = 10000;
constexpr int64_t kNoticesBuiltInMs = 10000;

bool isSetting(const std::string& name) {
  static const char* const others[] = {"mod.time", "rid.",        "ids.",    "Log.",
                                       "policy.",  "use.builtin", "tcp.port"};
  return std::none_of(std::begin(others), std::end(others),
                      [&](const char* other) { return name.starts_with(other); });
}

int64_t intervalOf(const std::map<std::string, std::string>& values) {
  const auto enabled = values.find("polling.enabled"), interval = values.find("polling.interval");
  if (enabled != values.end() && (enabled->second == "false" || enabled->second == "0")) return 0;
  return 1000 * (interval == values.end() || interval->second.empty()
                     ? 300
                     : std::atoll(interval->second.c_str()));
}

}  // namespace

Invariants::Invariants(Findings& findings, ModelServer& server, EventAccount& account,
                       DriverModel& driver, const Policies& policies, DiskView live,
                       std::string root)
    : _findings(findings),
      _server(server),
      _account(account),
      _driver(driver),
      _policies(policies),
      _disk(std::move(live)),
      _root(std::move(root)) {
  _server.setWatch(this);
}

void Invariants::foundOnce(bool& told, const std::string& what) {
  if (!told) found(what);
  told = true;
}

// --- what the machine says

void Invariants::started(int64_t now) {
  _life = Life::running;
  _statusSeen = _gapTold = _stopTold = _registrationTold = _noStatuses = false;
  _disturbed = !_machineGood;
  _statusBase = now;
  _toldInterval = 0;
  _countdownEnds = 0;
  _toldPolling.reset();
  _interval = pollingInterval();
  if (!_interval) _interval = 300000;  // an agent without polling sends one status all the same
  _refused.clear();
  _mustRegister = -1;
}

void Invariants::stopAsked(int64_t now) {
  if (_life == Life::running) _life = Life::stopping;
  _stopAsked = now;
}

void Invariants::lifeEnded(int64_t now) {
  followWeather(now);
  _life = Life::none;
  _owed.clear();
  dropLatest();
}

// A configuration that was not confirmed may be in force all the same.
void Invariants::dropLatest() {
  for (const auto& [name, value] : _latest) _possible[name].push_back(value);
  _latest.clear();
}

void Invariants::stopped(int64_t now, size_t threadsLeft, size_t handlesLeft) {
  if (_life == Life::running && !_server.mayEndItself()) found("life: the agent ended by itself");
  if (_life == Life::stopping && now - _stopAsked > kStopMs)
    foundOnce(_stopTold, "stop: it took " + std::to_string(now - _stopAsked) + " ms");
  if (threadsLeft) found("stop: " + std::to_string(threadsLeft) + " threads are left");
  if (handlesLeft) found("stop: " + std::to_string(handlesLeft) + " handles are left");
  lifeEnded(now);
  if (_diskFault) _account.forgotAll();
  _diskFault = false;
  lookAtLogs(_disk);
  checkStateFiles(_disk, "after a stop");
}

void Invariants::killed(int64_t now, bool powerCut) {
  lifeEnded(now);
  // What says that a log was finished may be missing too when the disk was bad.
  _pointerMayBeLost = powerCut && _diskFault;
  if (_pointerMayBeLost) _account.forgotRemoved();
  if (powerCut || _diskFault)
    _account.forgotAll();
  else
    _account.forgotLastBatches();
  _diskFault = false;
}

void Invariants::afterKill(const DiskView& survived) {
  // No flush of the first pointer went through: nothing names the logs that came before.
  if (_pointerMayBeLost && !survived.read(_root + "/IPS/hidslog1rtfilepointer"))
    _account.excuseFormerLogs();
  lookAtLogs(survived);
  checkStateFiles(survived, "after a kill");
}

void Invariants::machineWeather(int64_t now, bool good) {
  _machineGood = good;
  _disturbed |= !good;
  followWeather(now);
}

void Invariants::notified(int64_t now) {
  if (_statusSeen) _statusBase = std::max(_statusBase, now);
}

void Invariants::followWeather(int64_t now) {
  const bool good = _machineGood && _server.isGood(now);
  if (good && _goodSince < 0) _goodSince = now;
  if (!good) {
    _goodSince = -1;
    _owed.clear();
  }
}

void Invariants::tick(int64_t now) {
  followWeather(now);
  if (_driverHad != _driver.loaded() || _driverWasBuiltIn != _driver.builtIn()) {
    _driverHad = _driver.loaded();
    _driverWasBuiltIn = _driver.builtIn();
    _driverSince = now;
  }
  if (now / 1000 % 10 == 0) lookAtLogs(_disk);
  if (_life == Life::stopping && now - _stopAsked > kStopMs)
    foundOnce(_stopTold, "stop: it takes more than " + std::to_string(kStopMs) + " ms");
  if (_life == Life::running && _goodSince >= 0) checkTimes(now);
}

void Invariants::checkTimes(int64_t now) {
  const int64_t calm = _goodSince + (_goodSince ? kRecoveryMs : 0);
  if (_mustRegister >= 0 && now - std::max(_mustRegister, calm) > kRegistrationMs)
    foundOnce(_registrationTold, "registration: none after the identity was refused");
  const bool due = _interval && !_noStatuses && _mustRegister < 0;
  const int64_t gap = now - std::max(_statusBase, calm);
  if (due && gap > 2 * _interval + kSlackMs && now > _countdownEnds)
    foundOnce(_gapTold, "heartbeat: no status for " + std::to_string(gap / 1000) +
                            " s of good weather, the interval is " +
                            std::to_string(_interval / 1000) + " s");
  for (const Owed& owed : _owed)
    if (now > owed.until) {
      found("report: none of " + owed.kind + " with code " + std::to_string(owed.code) +
            (owed.id.empty() ? "" : " for " + owed.id));
      _owed.clear();
      break;
    }
}

int64_t Invariants::pollingInterval() const {
  const int64_t stored = intervalOf(settingsOf(_disk, _root));
  if (!_toldPolling.value_or(stored != 0)) return 0;
  // What is stored may be off still, or older than what is in force.
  return std::max<int64_t>(stored ? stored : 300000, _toldInterval);
}

bool Invariants::settled(int64_t now) {
  followWeather(now);
  return _life == Life::running && _goodSince >= 0 && _statusSeen && _owed.empty() &&
         _account.unsettled() == 0;
}

void Invariants::end(int64_t now) {
  followWeather(now);
  lookAtLogs(_disk);
  checkStateFiles(_disk, "at the end");
  if (_account.unsettled()) found("events: nobody has" + _account.listUnsettled());
  if (!_statusSeen) found("heartbeat: none at all after the last start");
}

// --- what the server has noticed

void Invariants::requested(int64_t now, const std::string& word, const std::string& guid) {
  followWeather(now);
  if (word == "register") _mustRegister = -1;
  const auto refused = _refused.find(guid);
  if (refused != _refused.end() && now > refused->second + kForgetsIdentityMs)
    found("registration: " + word + " under the identity " + guid + ", which was refused");
}

void Invariants::status(int64_t now, const Pairs& pairs, bool whole) {
  if (whole && !_statusSeen && !_disturbed) checkFirstStatus();
  checkPolicyNames(now, pairs);
  paid("policy", std::atoi(valueOf(pairs, "result.errorcode").c_str()),
       valueOf(pairs, "rid.applied"));
  if (!whole) return;
  _statusSeen = true;
  _gapTold = false;
  _statusBase = now;
  // A report of a policy looks like a status, and restarts no countdown.
  _countdownEnds = std::max(_countdownEnds, now + 2 * _interval + kSlackMs);
  _interval = pollingInterval();
}

void Invariants::result(int64_t, const std::string& kind, int code) {
  paid(kind, code, "");
  if (kind != "config" || (code != 0 && code != 1004)) return;
  for (const auto& [name, value] : _latest) {
    _confirmed[name] = value;
    _possible[name].clear();
  }
  _latest.clear();
  checkSettings(settingsOf(_disk, _root), "when they were reported");
}

void Invariants::identity(int64_t now, const std::string& guid) {
  _refused.erase(guid);
  _statusBase = std::max(_statusBase, now);
}

void Invariants::identityRefused(int64_t now, const std::string& guid) {
  _refused.emplace(guid, now);
  _owed.clear();  // nothing is sent without an identity
  if (_mustRegister < 0) _mustRegister = now;
}

void Invariants::configuration(int64_t now, const Pairs& settings, bool ids, bool hasBadOnes) {
  if (ids) return owe(now, "config.ids", kAnything);  // the component's answer
  dropLatest();
  int code = hasBadOnes ? 1004 : kAnything;
  bool onlySettings = true;
  for (const auto& [name, value] : settings) {
    if (name.starts_with("ids.") || name.starts_with("use.builtin")) onlySettings = false;
    if (!isSetting(name)) continue;
    if (code == kAnything) code = 0;
    _latest[name] = value;
    if (name == "polling.interval") _toldInterval = 1000 * std::atoll(value.c_str());
    if (name == "polling.enabled") _toldPolling = value == "true";
    if (name == "polling.enabled") _statusBase = std::max(_statusBase, now);
  }
  const int64_t interval = pollingInterval();
  _interval = interval ? std::max(_interval, interval) : 0;
  owe(now, "config", onlySettings ? code : kAnything);
}

void Invariants::policy(int64_t now, const SentPolicy* policy, bool ids) {
  if (ids) return owe(now, "policy.ids", kAnything);
  if (!policy) return owe(now, "policy", kFailure);
  const bool good = policy->kind == PolicyKind::good;
  owe(now, "policy", good ? 0 : 66, good ? policy->id : "");
}

void Invariants::package(int64_t now, const std::string& kind, bool good) {
  owe(now, kind, good ? 0 : kFailure);
}

void Invariants::owe(int64_t now, const std::string& kind, int code, const std::string& id) {
  if (_life == Life::running && _goodSince >= 0) _owed.push_back({kind, now + kReportMs, code, id});
}

void Invariants::paid(const std::string& kind, int code, const std::string& id) {
  std::erase_if(_owed, [&](const Owed& owed) {
    return owed.kind == kind && (owed.id.empty() || owed.id == id) &&
           (owed.code == kAnything || owed.code == code || (owed.code == kFailure && code != 0));
  });
}

// --- what must be so

// What a start finds half-done it undoes or finishes before it reports anything.
void Invariants::checkFirstStatus() {
  for (const std::string& path : _disk.paths()) {
    if (!path.starts_with(_root + "/IPS/driver/")) continue;
    for (const char* const rest : {"/policy.journal", ".tmp", ".err", ".old"})
      if (path.ends_with(rest)) found("start: " + path + " is left");
  }
  checkSettings(settingsOf(_disk, _root), "at the first status");
}

void Invariants::checkPolicyNames(int64_t now, const Pairs& pairs) {
  const std::string &path = valueOf(pairs, "policy.path"), &id = valueOf(pairs, "rid.applied"),
                    &name = valueOf(pairs, "policy.name");
  const std::string said = "\"" + name + "\", " + path + ", " + id;
  const bool recent = now - _driverSince < kNoticesBuiltInMs || _driverHad != _driver.loaded() ||
                      _driverWasBuiltIn != _driver.builtIn();
  if (path == "builtin") {
    if (!_disturbed && !recent && !_driver.isDeceived() && _driver.policy())
      found("policy: builtin is reported, the driver has " + _driver.policy()->id);
    return;
  }
  // The built-in policy of a driver that could not be asked, or lied, goes with the stored path.
  if (_disturbed && id == "builtin-id") return;
  const SentPolicy* const policy = _policies.byId(id);
  // A change that could not be rolled back leaves the path before beside the new name.
  if (!policy || policy->ids || (policy->path != path && !_disturbed) ||
      name != policy->name + " " + policy->version)
    return found("policy: the report names no policy of the server: " + said);
  if (_disturbed || _driver.isDeceived()) return;
  if (_driver.builtIn() ? !recent : _driver.policy() != policy)
    found("policy: the report names " + said + ", the driver has " + _driver.id());
}

void Invariants::checkSettings(const std::map<std::string, std::string>& values,
                               const std::string& where) {
  for (const auto& [name, value] : _confirmed) {
    const auto at = values.find(name);
    const std::string actual = at == values.end() ? "" : at->second;
    const auto& others = _possible[name];
    if (actual == value || std::count(others.begin(), others.end(), actual)) continue;
    if (const auto latest = _latest.find(name); latest != _latest.end() && latest->second == actual)
      continue;
    found("settings: " + name + "=" + actual + " instead of " + value + " " + where);
  }
  for (const auto& [name, value] : values)
    if ((name == "policy.name" || name == "policy.path") && value.find("ever") != std::string::npos)
      found("settings: " + name + "=" + value + " came with no policy, " + where);
}

void Invariants::checkStateFiles(const DiskView& disk, const std::string& when) {
  const std::string folder = _root + "/IPS/";
  const auto check = [&](const std::string& path, auto&& fault) {
    const auto bytes = disk.read(path);
    const std::string text = bytes ? fault(*bytes) : "";
    if (!text.empty()) found("files: " + path + " " + when + ": " + text);
  };
  const bool fallback = disk.read(folder + "fallback.ini").has_value();
  const auto iniFault = [](const std::string& bytes) {
    const std::string fault = readIni(bytes).fault;
    return fault == "no checksum" ? "" : fault;  // as an administrator leaves it
  };
  check(folder + "agent.ini", iniFault);
  check(folder + "fallback.ini", iniFault);
  check(folder + "hidslog1rtfilepointer", pointerFault);
  check(folder + "hidslog1rtnextlogs", nextLogsFault);
  check(folder + "driver/policy.journal", journalFault);
  for (const std::string& path : disk.paths())
    if (path.ends_with("policy.journal.damaged")) found("files: " + path + " " + when);
  if (!disk.read(folder + "agent.ini") && fallback) found("files: agent.ini is gone " + when);
  const auto values = settingsOf(disk, _root);
  checkSettings(values, when);
  const std::string filter = disk.parameter("Filter File");
  const auto translated = filter.empty() ? std::nullopt : disk.read(filter);
  if (!filter.empty() && !disk.read(folder + "driver/policy.journal") &&
      (!translated || !_policies.byTranslation(*translated)))
    found("files: " + filter + " " + when + ": no whole policy, and no journal");
  const auto plus = values.find("plus.policy.file");
  if (plus == values.end() || plus->second.empty()) return;
  const auto source = disk.read(plus->second);
  if (!source || !_policies.bySource(*source))
    found("files: " + plus->second + " " + when + ": " +
          (source ? "no whole policy of the server" : "it is missing"));
  check(plus->second.substr(0, plus->second.size() - 7) + ".trans", itemsFault);
}

void Invariants::lookAtLogs(const DiskView& disk) {
  std::set<std::string> existing;
  for (const EventLog& log : _account.logs())
    if (!log.gone && disk.read(log.path)) existing.insert(log.path);
  _account.look(existing);
}

}  // namespace korvane::simulation
