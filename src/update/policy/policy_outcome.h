// What came of working on a policy. A value; true when it was done.
#pragma once

#include "update/policy/result_codes.h"
#include "util/string.h"

namespace korvane {

struct [[nodiscard]] PolicyOutcome {
  enum class Result {
    done,  // the driver took another policy; of an IDS policy: the file for the component is there
    unchanged,  // the policy comes out as the driver has it
    bypassed,   // the built-in policy is in force
    missing,    // there is no source policy to read
    failed,     // and all is as it was
    stopped,    // the agent stops: there is nothing to report
  };

  Result result = Result::done;
  int code = 0;      // as it is reported
  STRING text = {};  // why; empty when there is nothing to say

  static PolicyOutcome failed(const STRING& text, int code = kPolicyFailure) {
    return {Result::failed, code, text};
  }

  explicit operator bool() const { return result == Result::done; }
  bool stopped() const { return result == Result::stopped; }
};

}  // namespace korvane
