#include "cloud/local_service.h"

#include "agent/thread/stop_token.h"
#include "cloud/local_methods.h"
#include "rpc/pipe_names.h"
#include "rpc/rpc_named_pipe.h"

namespace korvane {

LocalService::LocalService(AboutAgent about, platform::Pipes& pipes, const LocalParts& parts)
    : _about(std::move(about)), _pipes(pipes), _parts(parts) {}

void LocalService::run() {
  RPCNamedPipe transport(_pipes, _parts.clock, kLocalPipe, RPCNamedPipe::Role::server);
  RPCServer server(transport, _parts.clock);
  addLocalMethods(server, _about, _parts);
  const StopCallback withTheAgent(shutdownToken(), [this] { stopToken().request(); });
  server.run(stopToken());
}

}  // namespace korvane
