#include "comm/name_lookup.h"

#include <charconv>
#include <map>
#include <memory>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/thread/locks.h"
#include "agent/thread/stop_token.h"
#include "platform/platform.h"
#include "platform/sockets.h"
#include "platform/threading.h"
#include "util/agent_run.h"

namespace korvane {
namespace {

// One name being resolved, owned by the helper and by those who wait.
struct Lookup {
  Win32Mutex lock;
  bool finished GUARDED_BY(lock) = false;
  std::string address GUARDED_BY(lock);
  std::set<platform::Event*> waiters GUARDED_BY(lock);

  void finish(const std::string& found) {
    Synchronized hold(lock);
    finished = true;
    address = found;
    for (platform::Event* waiter : waiters) waiter->set();
  }
  void join(platform::Event& waiter) {
    Synchronized hold(lock);
    waiters.insert(&waiter);
    if (finished) waiter.set();
  }
  // The address, as far as it is known when the waiter goes.
  std::string leave(platform::Event& waiter) {
    Synchronized hold(lock);
    waiters.erase(&waiter);
    return address;
  }
};

struct Register {
  Win32Mutex lock;
  std::map<std::string, std::shared_ptr<Lookup>> running GUARDED_BY(lock);
};

Register& lookups() {
  return AgentRun::current().part<Register>(RunPart::nameLookups);
}

bool isDotted(std::string_view text) {
  for (int part = 0; part < 4; ++part) {
    unsigned number = 0;
    const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
    if (read.ec != std::errc() || number > 255) return false;
    text.remove_prefix(static_cast<size_t>(read.ptr - text.data()));
    if (part == 3) return text.empty();
    if (!text.starts_with('.')) return false;
    text.remove_prefix(1);
  }
  return false;
}

void resolve(platform::Sockets& sockets, const std::string& host, Lookup& lookup) {
  std::vector<std::string> addresses;
  const int error = sockets.resolve(host, addresses);
  {
    Synchronized hold(lookups().lock);
    lookups().running.erase(host);
  }
  lookup.finish(error == 0 && !addresses.empty() ? addresses.front() : std::string());
}

// The look-up of this name that is running already, or a new one; null when the system refuses it.
std::shared_ptr<Lookup> begin(const std::string& host) {
  Synchronized hold(lookups().lock);
  std::shared_ptr<Lookup>& running = lookups().running[host];
  if (running) return running;
  auto made = std::make_shared<Lookup>();
  running = made;
  platform::Sockets& sockets = platform::current().sockets;
  const auto helper = platform::current().threading.createThread(
      0, [&sockets, host, made, run = AgentRun::current().shared_from_this()] {
        const AgentRunScope inRun(run);
        resolve(sockets, host, *made);
      });
  if (helper) return made;
  lookups().running.erase(host);
  return nullptr;
}

}  // namespace

std::string lookUpAddress(const std::string& host, uint32_t timeoutMs) {
  if (host.empty() || isDotted(host)) return host;
  const auto woken = platform::current().threading.createEvent(/*manualReset=*/true,
                                                               /*signalled=*/false);
  if (!woken || shutdownToken().requested()) return {};
  const std::shared_ptr<Lookup> lookup = begin(host);
  if (!lookup) return {};
  lookup->join(*woken);
  {
    const StopCallback stop(shutdownToken(), [&woken] { woken->set(); });
    woken->wait(timeoutMs);
  }
  return lookup->leave(*woken);
}

size_t lookUpsOutstanding() {
  Synchronized hold(lookups().lock);
  return lookups().running.size();
}

}  // namespace korvane
