// A line of the policy history with any content: what reads as a record is written as one
// line that reads as the same record.
#include <cstdlib>

#include "update/policy/policy_history.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace korvane;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  HistoryRecord record;
  if (!parseHistoryLine(text, record)) record.errorText = text;
  const std::string line = historyLine(record);
  HistoryRecord first;
  HistoryRecord second;
  if (line.find('\n') != line.size() - 1 || !parseHistoryLine(line, first)) std::abort();
  if (!parseHistoryLine(historyLine(first), second) || !(first == second)) std::abort();
  return 0;
}
