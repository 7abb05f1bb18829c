// The log rules as one reading pass applies them to records.
//
// One thread. The rules outlive it; without any, keepsBack answers at once. What the agent adds to a
// record ("a1" to "a4") is as the machine says when the pass begins.
//
//   RuleFilter filter(parts.rules);
//   filter.beginPass(machine, "hidslog1rt", wallMs);
//   if (filter.keepsBack(record)) ...
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "ids/log_rules.h"
#include "logs/event_record.h"

namespace korvane {

class MachineFacts;

class RuleFilter {
 public:
  explicit RuleFilter(LogRules* rules) : _rules(rules) {}
  // Takes the rules in force.
  void beginPass(const MachineFacts& machine, const char* logName, int64_t wallMs);
  bool keepsBack(const EventRecord& record) const { return _set && !forwards(record); }

 private:
  bool forwards(const EventRecord& record) const;

  LogRules* const _rules;
  std::shared_ptr<const LogRuleSet> _set;
  std::array<std::string, LogRuleSet::kMaxNotes> _notes;
};

}  // namespace korvane
