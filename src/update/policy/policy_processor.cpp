#include "update/policy/policy_processor.h"

namespace korvane {

PolicyProcessor::PolicyProcessor() = default;
PolicyProcessor::~PolicyProcessor() = default;

}  // namespace korvane
