// The state before a policy change: what is needed to roll back an unfinished one.
//
// The file "driver/policy.journal" exists exactly while a change is in progress. It is written
// before the first file, registry value or setting is touched, and its removal commits the change.
// docs/file-formats.md has its lines.
//
// Value type and functions; nothing is kept. Used by the owner of the policy alone.
// Errors: 0 or an errno value; EBADMSG for a file that is not a whole journal.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "driver/driver.h"
#include "platform/fwd.h"
#include "util/string.h"

namespace korvane {

struct PolicyJournal {
  STRING newPlusFile;  // the one that is being translated; the configured one in a retranslation

  // As configured before.
  STRING plusFile;
  STRING path;
  STRING version;  // name and version
  STRING id;
  bool useBuiltIn = false;

  PolicySetting driver;
  // Translated files of the new plus file that there were, and that the change keeps as "....old".
  bool hadMinus = false;
  bool hadItems = false;

  friend bool operator==(const PolicyJournal&, const PolicyJournal&) = default;
};

inline constexpr uint64_t kMaxJournalBytes = 1 << 20;

std::string policyJournalText(const PolicyJournal& journal);
// False, and `out` as it was, for a text that is not a whole journal.
[[nodiscard]] bool parsePolicyJournal(std::string_view text, PolicyJournal& out);

std::string policyJournalPath(const platform::Files& files);
// ENOENT: no change is under way.
[[nodiscard]] int readPolicyJournal(platform::Files& files, PolicyJournal& out);
// Both are durable when they return 0.
[[nodiscard]] int writePolicyJournal(platform::Files& files, const PolicyJournal& journal);
[[nodiscard]] int removePolicyJournal(platform::Files& files);

}  // namespace korvane
