// What is known about the agent: from itself when it is running, otherwise from its files. Both
// have the members of the local channel's answers (docs/rpc.md); members that the files do not
// contain are omitted. URLs and the identifier are masked. Errors: Failure.
#pragma once

#include "agentctl/context.h"
#include "agentctl/json.h"

namespace korvane::agentctl {

// "running", and then agent, server, policy, technologies, logs, counters, lastErrors, trace.
Json statusFacts(Context& context);
// "running", "policy", "driver" and "files".
Json policyFacts(Context& context);
// "running", and what getLedger answers.
Json ledgerFacts(Context& context);
// What the files tell: also of an agent that runs.
Json filedStatus(Context& context);
// The policy files of the installation: name below it, bytes, and when they were changed.
Json policyFiles(Context& context);

// A member by its path ("server/url"), as text; empty when it is not there.
std::string textAt(const Json& facts, const std::string& path);

// What is not well, a sentence each; empty when all is.
std::vector<std::string> troubleOf(const Json& facts);

}  // namespace korvane::agentctl
