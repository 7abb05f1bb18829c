#include "simulate/oracle/policies.h"

namespace korvane::simulation {

namespace {

constexpr std::string_view kSource = "source policy ", kIdsSource = "source policy for the IDS ";

std::string translationOf(const SentPolicy& policy) {
  return (policy.ids ? "korvane-ids-policy 1\nname " : "korvane-policy 1\nname ") + policy.name +
         "\nversion " + policy.version + "\nid " + policy.id + "\nrule deny file web /srv/" +
         std::to_string(policy.number) + "/*\n" +
         (policy.kind == PolicyKind::driverRefuses ? "rule refuse not this one\n" : "");
}

}  // namespace

const SentPolicy& Policies::make(PolicyKind kind, bool ids) {
  SentPolicy policy;
  policy.number = static_cast<int>(_all.size()) + 1;
  policy.kind = kind;
  policy.ids = ids;
  const std::string number = std::to_string(policy.number);
  policy.name = "Base " + number;
  policy.version = "1." + number;
  policy.id = "policy-" + number;
  policy.path = "/policies/" + number;
  policy.translated = translationOf(policy);
  policy.source = std::string(ids ? kIdsSource : kSource) + number + "\n" +
                  (kind == PolicyKind::translatorRefuses ? "refuse\n" : policy.translated) +
                  "end\n";
  return _all[policy.number] = policy;
}

const SentPolicy* Policies::bySource(std::string_view source) const {
  for (const auto& [number, policy] : _all)
    if (policy.source == source) return &policy;
  return nullptr;
}

const SentPolicy* Policies::byTranslation(std::string_view bytes) const {
  for (const auto& [number, policy] : _all)
    if (policy.translated == bytes) return &policy;
  return nullptr;
}

const SentPolicy* Policies::byId(std::string_view id) const {
  for (const auto& [number, policy] : _all)
    if (policy.id == id) return &policy;
  return nullptr;
}

Translation translate(std::string_view source, bool forIds) {
  const size_t begin = source.find('\n') + 1;
  const bool whole = source.starts_with(forIds ? kIdsSource : kSource) && source.ends_with("end\n");
  if (!whole || source.substr(begin) == "refuse\nend\n")
    return {3, whole ? "refused by the translator" : "no whole source policy", "", true, false};
  std::string translated(source.substr(begin, source.size() - begin - 4));
  if (forIds) return {0, "", std::move(translated), false, true};
  return {0, std::move(translated), "korvane-items 1\nend 0\n", true, true};
}

bool DriverModel::load(std::string_view bytes) {
  const SentPolicy* const policy = _policies.byTranslation(bytes);
  _refusal = "not this one";
  if (!policy || policy->ids || policy->kind == PolicyKind::translatorRefuses) {
    _findings.add("driver: it was given " + std::to_string(bytes.size()) +
                  " bytes that are no whole policy of the server");
    return false;
  }
  if (policy->kind == PolicyKind::driverRefuses) return false;
  _policy = policy;
  _builtIn = false;
  _deceived = false;
  return true;
}

void DriverModel::booted(std::string_view filterFileBytes, bool useBuiltIn) {
  const SentPolicy* const policy = _policies.byTranslation(filterFileBytes);
  _policy = policy && !policy->ids && policy->kind == PolicyKind::good ? policy : nullptr;
  _builtIn = useBuiltIn;
}

}  // namespace korvane::simulation
