// A management server as docs/protocol.md describes it, and as badly as one can be: its weather
// changes from good to bad by a plan drawn from the seed, and in bad weather any answer may be
// any of those that a server, a proxy or a broken line produces.
//
// The machine carries the bytes:
//   const WireAnswer answer = server.exchange(request, now);
//   ... the agent receives answer.body, whole, with answer.status ...
//   server.arrived(answer.id, later);
// An answer for which arrived() is not called counts as one that may not have reached the agent.
// One exchange at a time.
#pragma once

#include <array>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "simulate/oracle/events.h"
#include "simulate/oracle/policies.h"
#include "simulate/oracle/wire.h"

namespace korvane::simulation {

// What the server has noticed, for the invariants. Called from exchange() and arrived().
class ServerWatch {
 public:
  virtual ~ServerWatch() = default;
  // A request has come, well-formed; `guid` is empty in a registration.
  virtual void requested(int64_t now, const std::string& word, const std::string& guid) = 0;
  // A report with the ten names, or of a policy state with seven.
  virtual void status(int64_t now, const Pairs& pairs, bool whole) = 0;
  virtual void result(int64_t now, const std::string& kind, int code) = 0;
  // These have reached the agent:
  virtual void identity(int64_t now, const std::string& guid) = 0;
  virtual void identityRefused(int64_t now, const std::string& guid) = 0;
  virtual void configuration(int64_t now, const Pairs& settings, bool ids, bool hasBadOnes) = 0;
  // `policy` null: an offer that holds no usable policy (no path, no bytes).
  virtual void policy(int64_t now, const SentPolicy* policy, bool ids) = 0;
  virtual void package(int64_t now, const std::string& kind, bool good) = 0;
};

class ModelServer {
 public:
  ModelServer(uint64_t seed, Findings& findings, Policies& policies, EventAccount& account);
  void setWatch(ServerWatch* watch) { _watch = watch; }

  WireAnswer exchange(const WireRequest& request, int64_t nowMs);
  void arrived(uint64_t id, int64_t nowMs);

  // A process of the agent has begun: what it was told is forgotten with the one before.
  void lifeBegan();
  // `true`: good from now on, whatever the plan says; `false`: by the plan.
  void goodWeather(bool forced) { _forcedGood = forced; }
  bool isGood(int64_t nowMs);
  // Nothing new is offered any more; what is offered stays.
  void quiet() { _quiet = true; }
  // A kind that a notification may name at present (sum of bits), or 0: nothing is waiting.
  int waitingKinds();

  // The agent was told something, at its start, after which it may end by itself.
  bool mayEndItself() const { return _fatalTold; }
  const std::map<std::string, int>& counts() const { return _counts; }  // answers by name

 private:
  struct Offer {
    bool made = false;
    std::string kind;  // short name: "config", "policy", ...
    Pairs pairs;       // that come with it
    std::string bytes;
    bool hasBytes = false;
    const SentPolicy* policy = nullptr;
    bool good = true;  // of a package: it can be unpacked; of a configuration: all values are valid
  };
  // What reaches the agent with an answer.
  struct Pending {
    std::string word, guid, given;  // given: the identity
    int code = 0;
    bool understood = false, status = false, fatal = false;
    bool poll =
        false;  // an update of the agent's or the component's configuration or policy is asked for
    std::vector<int> events;
    std::vector<size_t> offers;  // kinds: announced by a status, given by an update
  };
  enum class Weather { good, mixed, refused, hanging, codes, unknownAgent, broken };

  void wire(const std::string& what);
  void check(const Message& message);
  void checkRegister(const Message& message);
  void checkResult(const Message& message);
  void checkLedger(const std::string& name, const std::string& value);
  void checkUpdate(const Message& message);
  void checkLog(const Message& message);
  void changeWeather(int64_t nowMs);
  WireAnswer answer(const Message& message, Pending& pending, int64_t nowMs);
  WireAnswer goodAnswer(const Message& message, Pending& pending);
  std::string registration(const Message& message, Pending& pending);
  std::string statusAnswer(Pending& pending, bool wide);
  std::string updateAnswer(const Pairs& asked, Pending& pending, bool wide);
  WireAnswer withCode(int code, Pending& pending);
  WireAnswer badAnswer(const Message& message, Pending& pending);
  WireAnswer brokenAnswer(const Message& message, Pending& pending);
  std::string spoiled(const std::string& body);
  Offer makeOffer(size_t kind);
  Offer makeConfiguration(bool ids);
  void told(const Offer& offer, int64_t nowMs);

  Random _random;
  Findings& _findings;
  Policies& _policies;
  EventAccount& _account;
  ServerWatch* _watch = nullptr;

  Weather _weather = Weather::good;
  int64_t _weatherEnds = 0;
  bool _forcedGood = false, _quiet = false;

  std::set<std::string> _known, _refused;  // identities
  std::array<Offer, 9> _offers;            // by the bits of the kinds
  std::string _dataRequest;                // application data: the identifier, or empty
  std::map<uint64_t, Pending> _pending;
  uint64_t _lastId = 0;
  int _identities = 0, _configurations = 0;
  bool _pollingOff = false;  // as the last configuration says
  // In this life: 1 for a status, which may have reported an outcome, 2 for an update.
  int _accepted = 0;
  bool _served = false;  // anything but registrations, in this life
  bool _fatalTold = false;
  std::string _base;  // the path before the words
  std::map<std::string, int> _counts;
};

}  // namespace korvane::simulation
