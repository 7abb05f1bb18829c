// A network inside the process: every address leads to the same set of ports, on
// which sockets of the same FakeSockets listen. Thread-safe, except for one Socket used by one
// thread and its interrupt().
// Lifetime: sockets may outlive the object, but not its Threading.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/sockets.h"
#include "platform/threading.h"

namespace korvane::platform {

struct FakeNetwork;

class FakeSockets final : public Sockets {
 public:
  explicit FakeSockets(Threading& threading);
  ~FakeSockets() override;

  int startup() override { return 0; }
  void cleanup() override {}
  int createTcp(std::unique_ptr<Socket>& out) override;
  // Knows "localhost" and dotted addresses.
  int resolve(const std::string& host, std::vector<std::string>& out) override;
  void shutdownForeign(uint64_t) override {}
  void closeForeign(uint64_t) override {}

  // Makes resolve() hang from now on (until false is set, which lets go all that hang).
  void setResolverHangs(bool hangs);

 private:
  const std::shared_ptr<FakeNetwork> _network;
  const std::unique_ptr<Event> _resolverAnswers;
};

}  // namespace korvane::platform
