// The codes of the agent's own in what it reports about a policy or another update.
#pragma once

namespace korvane {

inline constexpr int kNothingNew = 19;     // the server had nothing of what it announced
inline constexpr int kNoInformation = 35;  // it did not say what is needed to use it
inline constexpr int kDiskFailure = 36;    // it cannot be kept on disk
inline constexpr int kPolicyFailure = 66;  // the policy cannot be translated or loaded

}  // namespace korvane
