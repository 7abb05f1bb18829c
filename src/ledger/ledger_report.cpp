#include "ledger/ledger_report.h"

#include <algorithm>
#include <string>

#include "util/dates.h"

namespace korvane {
namespace {

std::string orNone(const std::string& text) {
  return text.empty() ? "-" : text;
}

std::string accountText(const StreamAccount& account) {
  std::string text = account.stream + " " + formatIso8601(account.sinceMs);
  for (const uint64_t number :
       {account.read, account.delivered, account.waiting, account.ledgered, account.uncounted})
    (text += ' ') += std::to_string(number);
  return text;
}

std::string entryText(const LedgerEntry& entry) {
  std::string text = orNone(entry.stream) + " " + nameOf(entry.cause);
  text += entry.counted ? " counted" : " uncounted";
  for (const uint64_t number :
       {entry.count, uint64_t{entry.parts}, entry.first.position, entry.last.position})
    (text += ' ') += std::to_string(number);
  for (const int64_t ms : {entry.first.wallMs, entry.last.wallMs})
    (text += ' ') += formatIso8601(ms);
  return text + " " + orNone(entry.log);
}

template <class Item>
void add(PropertyList& out, const char* many, const std::string& one,
         const std::vector<Item>& items, std::string (*textOf)(const Item&)) {
  out.emplace_back(many, STRING::fromInt(static_cast<int64_t>(items.size())));
  for (size_t i = 0; i < items.size(); ++i)
    out.emplace_back(STRING(one + std::to_string(i + 1)), STRING(textOf(items[i])));
}

}  // namespace

PropertyList ledgerProperties(const LedgerView& view) {
  const bool idle = std::all_of(view.accounts.begin(), view.accounts.end(),
                                [](const StreamAccount& account) { return account.read == 0; });
  PropertyList pairs;
  // The accounts are opened with the logs, somewhat later than the ledger.
  if (view.accounts.empty() || (idle && view.entries.empty())) return pairs;
  add(pairs, "ledger.accounts", "ledger.account.", view.accounts, accountText);
  add(pairs, "ledger.entries", "ledger.entry.", view.entries, entryText);
  return pairs;
}

}  // namespace korvane
