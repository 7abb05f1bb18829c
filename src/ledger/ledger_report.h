// The ledger as the server is told of it: properties of a status, docs/ledger.md has them. No state,
// any thread.
#pragma once

#include "ledger/loss_ledger.h"
#include "util/property_list.h"

namespace korvane {

// Nothing when no line was read and nothing was lost.
PropertyList ledgerProperties(const LedgerView& view);

}  // namespace korvane
