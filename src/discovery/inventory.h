// An inventory of the machine, as a discovery definition says (docs/discovery.md).
//
// Lifetime: refers to its parts, which must outlive it. It keeps the definitions that it accepted last:
// one object for a run of the agent, handed to whoever collects.
// Threads: any, with kStackBytes of stack; each of two calls at once takes its own share of a core.
// Errors: all are in the outcome; only std::bad_alloc is thrown.
// Time: a collection takes minutes to hours, since it keeps to its share of one core.
//
//   Inventory inventory(clock, files, survey);
//   InventoryOutcome got = inventory.collect(stopToken(), {settings.configFile(), settings.configV2File(),
//                                                          "/opt/agent/inventory.xml", shortcuts});
//   if (got.stopped) return;
//   if (!got.error.empty()) tell(got.error);   // also with a result, of the definition before
//   if (got.written) send("/opt/agent/inventory.xml");
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "agent/thread/stop_token.h"
#include "platform/fwd.h"
#include "util/string.h"

namespace korvane {

// What is to be collected, and where to. All are full paths.
struct InventoryOrder {
  STRING definitionFile;    // format 1; empty for none
  STRING definitionFileV2;  // format 2; empty for none
  STRING outputFile;        // the XML
  STRING shortcutsFile;     // "shortcuts.txt"; empty for none
};

struct InventoryOutcome {
  bool written = false;   // outputFile is new, and whole
  bool complete = false;  // it has everything; false with `written` when a limit ended it
  // Why a definition was refused ("FILE: line L, column C: reason"), or why the result could not be
  // written. Beside `written` it is the refusal of a newer definition than the one that was used.
  STRING error;
  bool stopped = false;
  uint64_t rows = 0;
  uint64_t skipped = 0;
  // Lower-case hexadecimal SHA-256. Empty when the definition asks for nothing that counts for it, and
  // when the inventory is not complete: an empty one says nothing about a change.
  std::string applicationsChecksum;
  std::string filesChecksum;
};

class Inventory {
 public:
  static constexpr uint32_t kStackBytes = 256 * 1024;

  Inventory(platform::Clock& clock, platform::Files& files, platform::Survey& survey);
  ~Inventory();
  Inventory(const Inventory&) = delete;
  Inventory& operator=(const Inventory&) = delete;

  [[nodiscard]] InventoryOutcome collect(StopToken& stop, const InventoryOrder& order);
  // The same, in the words of who has no shortcuts to write.
  [[nodiscard]] InventoryOutcome collect(StopToken& stop, const STRING& definitionFile,
                                         const STRING& definitionFileV2, const STRING& outputFile) {
    return collect(stop, {definitionFile, definitionFileV2, outputFile, {}});
  }

 private:
  struct State;
  const std::unique_ptr<State> _state;
};

}  // namespace korvane
