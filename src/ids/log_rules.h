// The log rules: which events of the IDS component's real-time log are forwarded and which are kept
// back. docs/log-rules.md has their form, their file and what happens to a bad one.
//
// LogRuleSet is a value that does not change: a set of rules in their order, judged whole. LogRules
// holds the one in force and its file. Lifetime: the files outlive it; a set lives as long as
// somebody holds it. Threads: any may call anything; matching takes no lock. Errors: a set that cannot
// be used leaves the one in force as it is.
//
//   RefusedRule refused;
//   if (rules.replace({{"Log.1", "TFIL; v5=C:\\temp:0"}}, refused) == LogRules::Outcome::inForce) ...
//   const auto set = rules.current();
//   if (set && !set->forwards(fieldOfRecord)) ...
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "agent/thread/locks.h"
#include "platform/fwd.h"
#include "util/property_list.h"

namespace korvane {

// Why a set of rules is not used.
struct RefusedRule {
  STRING name;
  std::string reason;
};

class LogRuleSet {
 public:
  static constexpr size_t kMaxRules = 1000;
  static constexpr size_t kMaxValueUnits = 4096;  // UTF-16 code units
  static constexpr size_t kMaxTypes = 64;
  // Where the names "a1" to "a4" lie, beside 1 to 49 for "v1" to "v49".
  static constexpr size_t kNoteBase = 100;
  static constexpr size_t kMaxNotes = 4;

  // Null, with `refused`, unless every pair is a rule.
  static std::shared_ptr<const LogRuleSet> parse(const PropertyList& pairs, RefusedRule& refused);

  // What the first rule says that an event satisfies; true when there is none. field(n): the text of
  // value n, empty when the event has none.
  template <class Field>
  bool forwards(const Field& field) const {
    for (const Rule& rule : _rules)
      if (rule.satisfiedBy(field)) return rule.forward;
    return true;
  }
  // A rule names "a1" to "a4".
  bool usesNotes() const { return _usesNotes; }
  size_t size() const { return _rules.size(); }

 private:
  struct Condition {
    size_t field;
    std::string value;  // UTF-8
  };
  struct Rule {
    std::vector<std::string> types;  // empty: all
    std::vector<Condition> conditions;
    bool forward = true;

    template <class Field>
    bool satisfiedBy(const Field& field) const;
  };

  static std::string parseRule(std::string_view value, Rule& rule);
  static std::string parseTypes(std::string_view text, Rule& rule);
  static std::string parseCondition(std::string_view text, Rule& rule);

  std::vector<Rule> _rules;
  bool _usesNotes = false;
};

template <class Field>
bool LogRuleSet::Rule::satisfiedBy(const Field& field) const {
  bool named = types.empty();
  const std::string_view type = field(1);
  for (size_t i = 0; i < types.size() && !named; ++i) named = type == types[i];
  if (!named) return false;
  for (const Condition& condition : conditions)
    if (field(condition.field) != std::string_view(condition.value)) return false;
  return true;
}

class LogRules {
 public:
  enum class Outcome { inForce, refused, notWritten };

  // file: where the rules in force are kept.
  LogRules(platform::Files& files, std::string file) : _files(files), _file(std::move(file)) {}

  // The set in force; null while there is none. The first call reads the file.
  std::shared_ptr<const LogRuleSet> current();
  // Puts these in the place of all earlier ones: in force and on the disk when it answers so.
  // `error`: an errno value, of what was not written.
  [[nodiscard]] Outcome replace(const PropertyList& pairs, RefusedRule& refused, int& error);

 private:
  void readOnce() REQUIRES(_lock);

  platform::Files& _files;
  const std::string _file;
  Win32Mutex _lock;
  bool _read GUARDED_BY(_lock) = false;
  std::shared_ptr<const LogRuleSet> _current GUARDED_BY(_lock);
};

}  // namespace korvane
