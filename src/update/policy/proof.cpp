#include "update/policy/proof.h"

#include "config/install_root.h"
#include "config/policy_settings.h"
#include "eventlog/event_log.h"
#include "platform/paths.h"

namespace korvane {
namespace {

constexpr char kProofTag[] = "Proof";
constexpr char kRecordFile[] = "trust.record";

}  // namespace

trust::Verdict prove(const ProofParts& parts, const trust::Wanted& wanted, std::string_view bytes) {
  trust::Gate gate(parts.files, parts.clock,
                   platform::joinPath(parts.files, {installDirectory(), kRecordFile}),
                   {parts.settings.getSigningKeys().toUtf8(), parts.settings.getSigningMinimum()});
  const trust::Verdict verdict = gate.check(wanted, bytes);
  if (verdict.signersVersion != 0)
    eventlog::event(EventId::signersReplaced, kProofTag,
                    {trust::numeral(verdict.signersVersion), verdict.newSigners});
  if (!verdict.accepted()) {
    const std::string what =
        trust::joined({trust::nameOf(wanted.kind), wanted.name.empty() ? "" : " ", wanted.name});
    eventlog::event(EventId::contentNotProven, kProofTag,
                    {what, verdict.refusal.text, verdict.refusal.code()});
  }
  return verdict;
}

}  // namespace korvane
