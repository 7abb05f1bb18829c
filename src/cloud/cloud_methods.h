// The commands of the cloud command channel; docs/cloud.md describes each.
//
// Lifetime: outlives the server that it is added to; its parts outlive it. Threads: the server's.
// Errors: RPCError.
#pragma once

#include <functional>

#include "platform/fwd.h"
#include "rpc/rpc_server.h"
#include "update/policy/policy_processor.h"
#include "update/policy/proof.h"
#include "util/property_list.h"

namespace korvane {

class ApplicationPolicies;
class ConnectorPresence;
class ForwardingCounters;
class ForwardingSwitch;
class MachineFacts;
class ServerSettings;

class CloudMethods {
 public:
  struct Parts {
    PolicyParts policies;
    const ServerSettings& server;
    const MachineFacts& machine;
    ForwardingSwitch& forwarding;
    const ForwardingCounters& counters;
    ConnectorPresence& connector;
  };
  explicit CloudMethods(const Parts& parts) : _parts(parts) {}

  void addTo(RPCServer& server);

 private:
  using Command = void (CloudMethods::*)(const RPCRequest&, RPCResponse&);

  void policyBuffer(const RPCRequest& request, RPCResponse& response);
  void policy(const RPCRequest& request, RPCResponse& response);
  void configuration(const RPCRequest& request, RPCResponse& response);
  void setApplication(const RPCRequest& request, RPCResponse& response);
  void removeApplication(const RPCRequest& request, RPCResponse& response);
  void listApplications(const RPCRequest& request, RPCResponse& response);
  void getState(const RPCRequest& request, RPCResponse& response);
  void retranslate(const RPCRequest& request, RPCResponse& response);
  // How many settings differ now.
  int change(const PropertyList& settings);
  // The content of what proves itself; within a turn.
  std::string_view proven(const trust::Wanted& wanted, std::string_view bytes);
  // Runs the work in a turn, with the policy's history at hand.
  void workOnPolicy(const std::function<void(ApplicationPolicies&)>& work);

  const Parts _parts;
  PolicyProcessor _processor{_parts.policies};
  bool _ready = false;  // the history has been initialised
};

}  // namespace korvane
