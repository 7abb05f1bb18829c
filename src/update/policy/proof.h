// What comes from the server or over the cloud command channel, before anything of it is kept: is it
// what the trusted signers of the settings signed? Every policy, content and software package goes
// through here, and nothing else does: what was accepted and lies on disk is used as it is.
//
// Threads: those that work on updates take turns (policy_turn.h), since it writes the record of
// what was accepted.
// Errors: the verdict; events 10597 and 10598.
//
//   const trust::Verdict verdict = prove(parts, {trust::Kind::policy}, bytes);
//   if (verdict.accepted()) install(verdict.content);
#pragma once

#include <string_view>

#include "platform/fwd.h"
#include "trust/gate.h"

namespace korvane {

class PolicySettings;

// All of it outlives the call.
struct ProofParts {
  platform::Files& files;
  platform::Clock& clock;
  const PolicySettings& settings;
};

// The content lies in `bytes`.
[[nodiscard]] trust::Verdict prove(const ProofParts& parts, const trust::Wanted& wanted,
                                   std::string_view bytes);

}  // namespace korvane
