#include "cloud/parameters.h"

namespace korvane {

void refuseParameter(const std::string& name, const std::string& fault) {
  throw RPCError(kRpcInvalidParams, (name.empty() ? "\"\"" : name) + ": " + fault);
}

const JsonTree* givenParameter(const JsonTree& params, const char* name) {
  const bool isNone = params.empty() && (params.data().empty() || params.data() == "null");
  if (!isNone && (params.empty() || params.front().first.empty()))
    refuseParameter("params", "must be an object");
  const auto at = params.find(name);
  return at == params.not_found() ? nullptr : &at->second;
}

const std::string* givenText(const RPCRequest& request, const char* name) {
  const JsonTree* child = givenParameter(request.params, name);
  if (child && !child->empty()) refuseParameter(name, "is not a single value");
  return child ? &child->data() : nullptr;
}

const std::string& neededText(const RPCRequest& request, const char* name) {
  const std::string* text = givenText(request, name);
  if (!text) refuseParameter(name, "is missing");
  return *text;
}

std::optional<int> givenNumber(const RPCRequest& request, const char* name) {
  const JsonTree* child = givenParameter(request.params, name);
  if (!child) return std::nullopt;
  const auto number = child->get_value_optional<int>();
  if (!child->empty() || !number) refuseParameter(name, "is not a number");
  return *number;
}

}  // namespace korvane
