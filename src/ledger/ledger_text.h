// The content of the ledger file as text, one slot of it; docs/ledger.md has the lines.
//
// No state, any thread. Nothing throws but std::bad_alloc.
//
//   LedgerContent content;
//   if (const char* wrong = parseLedger(slot, content)) report(wrong);
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ledger/loss.h"

namespace korvane {

struct LedgerEntry : Loss {
  uint32_t parts = 1;  // losses merged into it; with an empty log, losses of several logs
  uint64_t number =
      0;  // of the settlement that its stream's pointer may not have gone past; else 0

  friend bool operator==(const LedgerEntry&, const LedgerEntry&) = default;
};

struct LedgerStream {
  std::string name;
  uint64_t number = 0;  // of the last settlement

  friend bool operator==(const LedgerStream&, const LedgerStream&) = default;
};

struct LedgerContent {
  uint64_t generation = 0;  // one more with each write of the file; the one behind the highest is 0
  std::vector<LedgerStream> streams;
  std::vector<LedgerEntry> entries;  // oldest first

  friend bool operator==(const LedgerContent&, const LedgerContent&) = default;
};

// A slot holds at most so many of each; more are no ledger.
inline constexpr size_t kMaxLedgerEntries = 64;
inline constexpr size_t kMaxLedgerStreams = 16;
// The number of a settlement; the one behind it is 1.
inline constexpr uint64_t kMostSettlements = uint64_t{1} << 62;

// The lines with the right last one in the place of the one that they have.
std::string sealedLedger(std::string text);
std::string ledgerText(const LedgerContent& content);
// The slot may go on with NULs. Null, or what is wrong with it; `out` is undefined then.
[[nodiscard]] const char* parseLedger(std::string_view slot, LedgerContent& out);

// The log's name as an entry has it: without control characters, and at most kLongestLogName bytes.
std::string ledgerLogName(std::string_view name);

// Merges entries, the oldest first, until there are at most `entries`: those of the same log and
// cause, then those of a stream and cause into one without a log. Those of different settlements that
// are not past yet stay apart.
void mergeEntries(std::vector<LedgerEntry>& all, size_t entries);

}  // namespace korvane
