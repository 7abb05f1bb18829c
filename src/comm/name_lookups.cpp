#include "comm/name_lookups.h"

#include <charconv>
#include <map>
#include <memory>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/thread/locks.h"
#include "platform/sockets.h"
#include "platform/threading.h"

namespace korvane {
namespace {

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

}  // namespace

// One name being resolved, owned by the helper and by those who wait.
struct NameLookups::Lookup {
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

// The names being resolved; a helper owns a share of it.
struct NameLookups::Running {
  Win32Mutex lock;
  std::map<std::string, std::shared_ptr<Lookup>> names GUARDED_BY(lock);

  void resolve(platform::Sockets& sockets, const std::string& host, Lookup& lookup) {
    std::vector<std::string> addresses;
    const int error = sockets.resolve(host, addresses);
    {
      Synchronized hold(lock);
      names.erase(host);
    }
    lookup.finish(error == 0 && !addresses.empty() ? addresses.front() : std::string());
  }
};

NameLookups::NameLookups(Parts parts)
    : _parts(std::move(parts)), _running(std::make_shared<Running>()) {}

NameLookups::~NameLookups() = default;

// The look-up of this name that is running already, or a new one; null when the system refuses it.
std::shared_ptr<NameLookups::Lookup> NameLookups::begin(const std::string& host) {
  Synchronized hold(_running->lock);
  std::shared_ptr<Lookup>& running = _running->names[host];
  if (running) return running;
  auto made = std::make_shared<Lookup>();
  running = made;
  const bool started = _parts.startThread([&sockets = _parts.sockets, host, made, all = _running] {
    all->resolve(sockets, host, *made);
  });
  if (started) return made;
  _running->names.erase(host);
  return nullptr;
}

std::string NameLookups::address(const std::string& host, uint32_t timeoutMs) {
  if (host.empty() || isDotted(host)) return host;
  const auto woken = _parts.threading.createEvent(/*manualReset=*/true, /*signalled=*/false);
  if (!woken || _parts.stop.requested()) return {};
  const std::shared_ptr<Lookup> lookup = begin(host);
  if (!lookup) return {};
  lookup->join(*woken);
  {
    const StopCallback stop(_parts.stop, [&woken] { woken->set(); });
    woken->wait(timeoutMs);
  }
  return lookup->leave(*woken);
}

size_t NameLookups::outstanding() {
  Synchronized hold(_running->lock);
  return _running->names.size();
}

}  // namespace korvane
