// The names of the agent's pipes. docs/rpc.md describes their protocol, docs/security.md the access
// rules.
#pragma once

namespace korvane {

// Every agent, from the beginning of its start to its stop: questions and settings of local
// programs.
inline constexpr char kLocalPipe[] = "korvane-agent";
// Agents with a cloud command channel: commands of the cloud connector, for administrators.
inline constexpr char kCloudPipe[] = "korvane-agent-cloud";
// Agents without a management server: their events, for the component that carries them on. The
// agent serves it, so that nobody else can take its place and have the events.
inline constexpr char kEventPipe[] = "korvane-agent-events";

}  // namespace korvane
