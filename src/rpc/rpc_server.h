// The server of the local channel: named methods, called by one client after another.
//
// Lifetime: transport and clock outlive the object. Methods are added before run().
// Start and stop: run() serves until its token asks for the stop, which ends every wait of the
//   transport at once; a method that runs then is waited for. A transport that has been stopped
//   stays so: the next run needs a new one.
// Threads: run() by one thread. Methods run on it.
// Errors: a method throws RPCError for a failure with a code; RPCError(kRpcInvalidParams)
//   also stands for what the property tree throws about a parameter. Anything else is
//   "Internal error", and the server goes on. A transport that cannot be made is event
//   10600 once, and is retried every five seconds.
//
//   RPCServer server(transport, clock);
//   server.add("version", RPCServer::Access::everyone,
//              [](const RPCRequest&, RPCResponse& response) { response.result.put("version", "1.0"); });
//   server.run(stopToken());
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "agent/thread/stop_token.h"
#include "rpc/rpc_message_queue.h"

namespace korvane {

class RPCServer {
 public:
  // Who may call: everyone on this machine, or those who may administer it. What changes
  // something is for administrators.
  enum class Access { everyone, administrators };
  // Fills in the answer; its id is filled in already.
  using Method = std::function<void(const RPCRequest&, RPCResponse&)>;

  static constexpr int kCycleMs = 1000;
  static constexpr uint32_t kRetryMs = 5000;

  RPCServer(RPCTransportBase& transport, platform::Clock& clock)
      : _transport(transport), _queue(transport, clock) {}

  void add(const std::string& name, Access access, Method method);
  // Called by run() about once a second when nobody asks, and after each request: to let go of what
  // was kept for a client. Must be quick.
  void addUpkeep(std::function<void()> upkeep) { _upkeep.push_back(std::move(upkeep)); }
  void run(StopToken& stop);
  // One turn of run(): waits up to kCycleMs for a request and answers it. False: there is
  // no transport.
  bool cycle();

 private:
  struct Entry {
    Access access;
    Method method;
  };
  void respond(const RPCRequest& request, RPCResponse& response);
  void call(const RPCRequest& request, RPCResponse& response);
  void answer(RPCRequest& request);

  RPCTransportBase& _transport;
  RPCMessageQueue _queue;
  std::map<std::string, Entry> _methods;
  std::vector<std::function<void()>> _upkeep;
  bool _toldUnusable = false;
};

}  // namespace korvane
