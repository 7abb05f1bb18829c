// Makes the parts of the agent object: the communication component of the service type, and the
// threads, each with what it uses of the context. The caller owns the result.
#pragma once

#include <memory>

#include "comm/agent_comm.h"

namespace korvane {

struct AgentContext;
class AgentInfo;
class Thread;

// Null for an agent that is neither a standard nor a cloud agent.
[[nodiscard]] std::unique_ptr<AgentComm> makeAgentComm(const AgentContext& context);

// Serves the local channel.
Thread* makeLocalService(const AgentContext& context);
Thread* makeComponentUpdate(const AgentContext& context);
Thread* makeAppData(const AgentContext& context);
Thread* makeGenericAppData(const AgentContext& context);
Thread* makeUpdate(AgentInfo* info);
Thread* makeComm(const AgentContext& context, AgentInfo* info);
Thread* makeUtil(AgentInfo* info);
// Forwards the IDS component's real-time event log.
Thread* makeLogProcessing(const AgentContext& context);
Thread* makeBulkLogProcessing(const AgentContext& context);

}  // namespace korvane
