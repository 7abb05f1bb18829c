// The error codes of the cloud command channel beside those of every channel (rpc_errors.h); all of
// them read "Server error". docs/cloud.md says when which is answered.
#pragma once

namespace korvane {

inline constexpr int kCloudPolicyRefused = -32020;  // the policy in force stays
inline constexpr int kCloudNoBasePolicy = -32021;
inline constexpr int kCloudPreventionOff = -32022;
inline constexpr int kCloudStopping = -32023;
inline constexpr int kCloudNoSuchApplication = -32024;
inline constexpr int kCloudNotWritten = -32025;  // settings that could not be saved
// A policy that does not prove itself: -32031 for its code 1101 (trust/refusal.h), and so on.
inline constexpr int kCloudNotProven = -32031 + 1101;

}  // namespace korvane
