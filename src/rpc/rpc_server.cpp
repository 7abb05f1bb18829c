#include "rpc/rpc_server.h"

#include <boost/property_tree/exceptions.hpp>

#include "eventlog/event_log.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

void fail(RPCResponse& response, int code, const std::string& detail = {}) {
  const std::optional<int> id = response.id;
  response = {};
  response.id = id;
  response.error = code;
  response.detail = detail;
}

}  // namespace

void RPCServer::add(const std::string& name, Access access, Method method) {
  _methods[name] = {access, std::move(method)};
}

void RPCServer::run(StopToken& stop) {
  const StopCallback interrupt(stop, [this] { _transport.interrupt(); });
  while (!stop.requested()) {
    if (!cycle()) stop.sleepFor(kRetryMs);
  }
}

bool RPCServer::cycle() {
  if (!_transport.start()) {
    if (!_toldUnusable)
      eventlog::event(EventId::localChannelUnusable, "RPC", {_transport.lastError()});
    _toldUnusable = true;
    return false;
  }
  _toldUnusable = false;
  RPCRequest request;
  if (_queue.receive(request, kCycleMs)) answer(request);
  for (const auto& upkeep : _upkeep) upkeep();
  return true;
}

// An answer that is not JSON, or longer than a message may be, is the method's fault. What the
// request brought is let go before the answer is written: a large one is not in memory twice.
void RPCServer::answer(RPCRequest& request) {
  RPCResponse response;
  response.id = request.id;
  respond(request, response);
  request.params.clear();
  try {
    // A peer that does not take it has been let go.
    ignoreResult(_queue.answer(std::move(response)));
  } catch (const std::exception& error) {
    eventlog::trace("RPC", "The answer of %s cannot be written: %s", request.name, error.what());
    RPCResponse failed;
    failed.id = request.id;
    failed.error = kRpcInternalError;
    ignoreResult(_queue.answer(std::move(failed)));
  }
}

void RPCServer::respond(const RPCRequest& request, RPCResponse& response) {
  try {
    call(request, response);
  } catch (const RPCError& error) {
    fail(response, error.code(), error.detail());
  } catch (const boost::property_tree::ptree_error& error) {
    eventlog::trace("RPC", "%s: %s", request.name, error.what());
    fail(response, kRpcInvalidParams, error.what());
  } catch (const std::exception& error) {
    eventlog::trace("RPC", "%s failed: %s", request.name, error.what());
    fail(response, kRpcInternalError);
  }
}

void RPCServer::call(const RPCRequest& request, RPCResponse& response) {
  const auto found = _methods.find(request.name);
  if (found == _methods.end()) throw RPCError(kRpcMethodNotFound);
  if (found->second.access == Access::administrators && !_transport.peerIsAdministrator())
    throw RPCError(kRpcNotAdministrator);
  found->second.method(request, response);
}

}  // namespace korvane
