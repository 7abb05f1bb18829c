// A network inside the process: every address that a test makes known leads to the same set of ports, on
// which sockets of the same FakeSockets listen. Thread-safe, except for one Socket used by one
// thread and its interrupt().
// Lifetime: sockets may outlive the object, but not its Threading.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/fake/fake_lock.h"
#include "platform/sockets.h"
#include "platform/threading.h"

namespace korvane::platform {

struct FakeNetwork;

class FakeSockets final : public Sockets {
 public:
  explicit FakeSockets(Threading& threading);
  ~FakeSockets() override;

  int startup() override;
  void cleanup() override;
  int createTcp(std::unique_ptr<Socket>& out) override;
  int resolve(const std::string& host, std::vector<std::string>& out) override;
  void shutdownForeign(uint64_t handle) override;
  void closeForeign(uint64_t handle) override;

  // What a host name resolves to; "localhost" is known from the start.
  void setHost(const std::string& host, std::vector<std::string> addresses);
  // Makes resolve() hang from now on (until false is set, which lets go all that hang).
  void setResolverHangs(bool hangs);
  // startup() calls that no cleanup() has answered.
  int startups();
  std::vector<uint64_t> foreignShutdowns();
  std::vector<uint64_t> foreignCloses();

 private:
  const std::shared_ptr<FakeNetwork> _network;
  const std::unique_ptr<Event> _resolverAnswers;
  FakeMutex _mutex;
  std::map<std::string, std::vector<std::string>> _hosts GUARDED_BY(_mutex);
  int _startups GUARDED_BY(_mutex) = 0;
  std::vector<uint64_t> _foreign GUARDED_BY(_mutex);
  std::vector<uint64_t> _foreignClosed GUARDED_BY(_mutex);
};

}  // namespace korvane::platform
