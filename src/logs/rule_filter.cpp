#include "logs/rule_filter.h"

#include "logs/field_map.h"

namespace korvane {

void RuleFilter::beginPass(const MachineFacts& machine, const char* logName, int64_t wallMs) {
  _set = _rules ? _rules->current() : nullptr;
  if (!_set || !_set->usesNotes()) return;
  _notes.fill({});
  const auto keep = [this](std::string_view name, std::string_view value) {
    const size_t note = static_cast<size_t>(name[1] - '1');
    if (note < _notes.size()) _notes[note] = value;
  };
  RecordNotes::take(machine, logName, wallMs).visit(1, {}, keep);
}

bool RuleFilter::forwards(const EventRecord& record) const {
  return _set->forwards([&](size_t n) -> std::string_view {
    return n > LogRuleSet::kNoteBase ? _notes[n - LogRuleSet::kNoteBase - 1] : record.field(n);
  });
}

}  // namespace korvane
