// The policies of an episode, what the translator makes of them, and the driver that holds one.
//
// A source policy is a text of its own form with a number in it; the model translator and the
// model driver know which numbers they refuse by the text alone.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "simulate/oracle/findings.h"

namespace korvane::simulation {

enum class PolicyKind { good, translatorRefuses, driverRefuses };

struct SentPolicy {
  int number = 0;
  PolicyKind kind = PolicyKind::good;
  bool ids = false;  // for the detection component
  std::string name, version, id, path;
  std::string source;      // the package as it is sent
  std::string translated;  // what a driver gets of it, unless the translator refuses
};

// Every policy that the server has made up, by number.
class Policies {
 public:
  const SentPolicy& make(PolicyKind kind, bool ids);
  const SentPolicy* bySource(std::string_view source) const;
  const SentPolicy* byTranslation(std::string_view bytes) const;
  const SentPolicy* byId(std::string_view id) const;

 private:
  std::map<int, SentPolicy> _all;
};

// What the translator program does: the exit code, and the bytes of its two outputs in the order
// of its arguments. "-hidsagent" leaves the first alone and writes the translation second.
struct Translation {
  uint32_t exitCode = 0;
  std::string first, second;
  bool writesFirst = true, writesSecond = true;
};
Translation translate(std::string_view source, bool forIds);

// The driver's policy: one whole one at any time, or the built-in one. The device that the machine
// simulates reports here what it does; a request that it loses or leaves undone is not reported.
class DriverModel {
 public:
  DriverModel(Findings& findings, const Policies& policies)
      : _findings(findings), _policies(policies) {}

  // A request to load the file's bytes. Gives false when the driver refuses them: refusal()
  // then is its text, and it keeps what it has.
  bool load(std::string_view bytes);
  void useBuiltIn() { _builtIn = true; }
  // A start of the machine: the driver reads its parameters itself. In the middle of a change that
  // is the policy before, or none.
  void booted(std::string_view filterFileBytes, bool useBuiltIn);
  // The agent was not told the truth about a request: failed though done, or the other way round.
  // Until the next load or query that was answered truly, its reports need not be right.
  void deceived() { _deceived = true; }
  void queried() { _deceived = false; }

  bool builtIn() const { return _builtIn || _policy == nullptr; }
  const SentPolicy* policy() const { return builtIn() ? nullptr : _policy; }
  const SentPolicy* loaded() const { return _policy; }
  bool isDeceived() const { return _deceived; }
  const std::string& refusal() const { return _refusal; }
  // Answers to the query: the built-in flag and three texts.
  std::string name() const { return builtIn() ? "Built-in" : _policy->name; }
  std::string version() const { return builtIn() ? "1" : _policy->version; }
  std::string id() const { return builtIn() ? "builtin-id" : _policy->id; }

 private:
  Findings& _findings;
  const Policies& _policies;
  const SentPolicy* _policy = nullptr;
  bool _builtIn = true, _deceived = false;
  std::string _refusal;
};

}  // namespace korvane::simulation
