// The parameters of a request, by name. What a method does not know is ignored; one that it knows
// and that is of another kind is refused, never taken for a missing one. Threads: any.
//
// Errors: RPCError kRpcInvalidParams, with the parameter's name and the fault.
//
//   const std::string* server = givenText(request, "server");
//   const std::optional<int> piece = givenNumber(request, "piece");
#pragma once

#include <optional>
#include <string>

#include "rpc/rpc_message.h"

namespace korvane {

[[noreturn]] void refuseParameter(const std::string& name, const std::string& fault);

// Null when it is missing. Parameters that are no object are refused.
const JsonTree* givenParameter(const JsonTree& params, const char* name);
// Text, number, true and false are texts; lists and objects are not.
const std::string* givenText(const RPCRequest& request, const char* name);
const std::string& neededText(const RPCRequest& request, const char* name);
std::optional<int> givenNumber(const RPCRequest& request, const char* name);

}  // namespace korvane
