#include "logs/log_destination.h"

#include "config/service_type.h"
#include "logs/https_log_destination.h"
#include "logs/rpc_log_destination.h"
#include "platform/platform.h"
#include "rpc/pipe_names.h"
#include "rpc/rpc_named_pipe.h"

namespace korvane {

std::vector<PropertyList> LogBatch::pairs() const {
  std::vector<PropertyList> lists;
  for (size_t i = 0; i < records.size(); ++i) lists.push_back(fieldPairs(records.at(i), notes));
  return lists;
}

std::unique_ptr<LogDestination> makeLogDestination(std::function<bool()> mayForward) {
  if (isStandardAgent()) return std::make_unique<HttpsLogDestination>();
  platform::Platform& system = platform::current();
  auto pipe = std::make_unique<RPCNamedPipe>(system.pipes, system.clock, kEventPipe,
                                             RPCNamedPipe::Role::server);
  return std::make_unique<RpcLogDestination>(std::move(pipe), system.clock, std::move(mayForward));
}

}  // namespace korvane
