// Resolves host names without ever blocking on the system's resolver.
//
// The resolver runs on a helper thread. When a time-out or a stop ends the wait, the helper is left
// behind: it owns everything it touches except the sockets, which its starter keeps for it, ends by
// itself when the resolver returns, and a later look-up of the same name waits for it instead of
// starting another. So at most one helper per name is ever outstanding. Any thread may call;
// nothing throws but std::bad_alloc.
//
//   std::string address = lookUps.address("server-1.example", 10000);  // "" when there is none
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "agent/thread/stop_token.h"
#include "platform/fwd.h"

namespace korvane {

class NameLookups {
 public:
  // Starts a thread that may be left behind, and keeps the sockets for as long as it runs; false
  // when the system refuses it.
  using StartThread = std::function<bool(std::function<void()> body)>;

  struct Parts {
    platform::Sockets& sockets;
    platform::Threading& threading;
    StopToken& stop;
    StartThread startThread;
  };

  explicit NameLookups(Parts parts);
  ~NameLookups();
  NameLookups(const NameLookups&) = delete;
  NameLookups& operator=(const NameLookups&) = delete;

  // The first IPv4 address of the host, dotted; empty when it cannot be resolved, when the time is
  // up, or when the agent stops. A dotted address is its own answer and asks nobody.
  std::string address(const std::string& host, uint32_t timeoutMs);

  // How many helpers have not ended.
  size_t outstanding();

 private:
  struct Lookup;
  struct Running;

  std::shared_ptr<Lookup> begin(const std::string& host);

  const Parts _parts;
  const std::shared_ptr<Running> _running;
};

}  // namespace korvane
