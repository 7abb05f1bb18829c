// The outcome of an update, as reported to the server.
#pragma once

#include <vector>

#include "config/hids_interface.h"
#include "config/refused_settings.h"
#include "update/policy/result_codes.h"
#include "util/property_list.h"
#include "util/string.h"

namespace korvane {

class ServerConnection;

struct UpdateResult {
  int code = 0;
  STRING text = "No Error";

  bool ok() const { return code == 0; }
};

// Codes of the agent's own, besides those of result_codes.h.
inline constexpr int kNoIdsComponent = 1003;   // there is none on this machine
inline constexpr int kSettingsRefused = 1004;  // in force except for the settings that are named
inline constexpr int kLogRulesRefused = 1005;  // none of them counts, the rest is in force

// Tells the server, which may answer that it does not know the agent (report_answer.h).
// Nothing repeats it.
void reportUpdateResult(ServerConnection& connection, int kind, const UpdateResult& result,
                        const PropertyList& pairs = {});

// Names what of a configuration was refused; a result that is bad already keeps its code.
void addRefusals(UpdateResult& result, const RefusedSettings& refused);
// Adds one that came on top of what is told already: a result that is bad keeps its code.
void addProblem(UpdateResult& result, const UpdateResult& problem);

// The result of the component's last apply operation. prefix: "IDS.Policy" or "IDS.Config".
// Throws AgentError 51, with the given context, when the code or the message is missing,
// and 39 for an empty code.
UpdateResult readIdsResult(HidsInterface& ids, const STRING& prefix, const STRING& context);

}  // namespace korvane
