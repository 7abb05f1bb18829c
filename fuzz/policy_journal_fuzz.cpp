// A policy journal with any content: one that is taken for whole is written back to the same bytes.
#include <cstdlib>

#include "update/policy/policy_journal.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace korvane;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  PolicyJournal journal;
  if (!parsePolicyJournal(text, journal)) {
    // The lines without a checksum that holds, so that what lies behind it is reached too.
    journal.newPlusFile = text;
    journal.driver.filterFile = text;
  }
  PolicyJournal again;
  const std::string written = policyJournalText(journal);
  if (!parsePolicyJournal(written, again) || !(again == journal)) std::abort();
  return 0;
}
