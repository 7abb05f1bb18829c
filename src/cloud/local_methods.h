// The methods of the local channel, by the subject they are about; docs/rpc.md describes each. What
// is registered refers to `about` and `parts` for as long as the server lives.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "cloud/local_service.h"
#include "rpc/rpc_server.h"

namespace korvane {

class RecentLogs;
class SettingsFile;

// getTechStatus, getTechNames, getAgentVersion, getStatus
void addStateMethods(RPCServer& server, const AboutAgent& about, const LocalParts& parts,
                     const std::shared_ptr<RecentLogs>& logs);
// getSettings, setSettings, setTrace
void addSettingsMethods(RPCServer& server, const LocalParts& parts);
// getPolicy, queryDriver, retranslate
void addPolicyMethods(RPCServer& server, const LocalParts& parts);
void requestRetranslation(SettingsFile& settings, RPCResponse& response);
// testConnection
void addConnectionMethods(RPCServer& server, const LocalParts& parts);
// getLogPointers, getCounters, getLedger
void addLogMethods(RPCServer& server, const LocalParts& parts,
                   const std::shared_ptr<RecentLogs>& logs);
// getDiagnostics
void addDiagnosticsMethods(RPCServer& server, const AboutAgent& about, const LocalParts& parts);
// collectApplicationData, getApplicationData, releaseApplicationData
void addAppDataMethods(RPCServer& server, const LocalParts& parts);
// All of them.
void addLocalMethods(RPCServer& server, const AboutAgent& about, const LocalParts& parts);

}  // namespace korvane
