// A notification port whose clients follow a script, and the count of sockets that are open.
//
//   ScriptedSockets sockets;
//   sockets.clients.push_back({{kWsaWouldBlock, 0}, {0, 'a'}});   // silent at first, then a byte
#pragma once

#include <cstring>
#include <deque>
#include <memory>
#include <utility>

#include "platform/error_codes.h"
#include "platform/fake/fake_sockets.h"
#include "platform/fake/forwarding.h"

namespace korvane::tests {

class ScriptedSockets : public platform::ForwardingSockets {
 public:
  struct Receive {
    int error = 0;
    int byte = 0;  // -1: the client has closed
  };
  using Client = std::deque<Receive>;  // the last one forever

  explicit ScriptedSockets(platform::Sockets& to) : ForwardingSockets(to) {}

  int createTcp(std::unique_ptr<platform::Socket>& out) override {
    ++creations;
    if (createError) return createError;
    out = std::make_unique<Listener>(*this);
    return 0;
  }

  std::deque<Client> clients;  // that wait to be accepted
  int createError = 0;
  int bindError = 0;
  int listenError = 0;
  int acceptError = 0;
  bool clientsVanish = false;  // the port is ready, and then nobody is there
  int blockedAccepts = 0;      // would have waited for the next client, whenever it comes
  int creations = 0;
  int open = 0;   // sockets
  int waits = 0;  // for a client's byte

 private:
  class Base : public platform::Socket {
   public:
    explicit Base(ScriptedSockets& owner) : _owner(owner) { ++_owner.open; }
    ~Base() override { --_owner.open; }
    int bind(bool, uint16_t) override { return _owner.bindError; }
    int listen(int) override { return _owner.listenError; }
    uint16_t localPort() override { return 0; }
    int connect(const std::string&, uint16_t, uint32_t) override { return 0; }
    int setNonBlocking(bool on) override {
      _blocks = !on;
      return 0;
    }
    int receive(void*, size_t, size_t&) override { return platform::kWsaNotConnected; }
    int accept(std::unique_ptr<Socket>&) override { return platform::kWsaInvalidArgument; }
    int send(const void*, size_t, size_t&) override { return 0; }
    int shutdownBoth() override { return 0; }
    void interrupt() override {}

   protected:
    ScriptedSockets& _owner;
    bool _blocks = true;
  };

  class Accepted : public Base {
   public:
    Accepted(ScriptedSockets& owner, Client script) : Base(owner), _script(std::move(script)) {}
    int receive(void* buffer, size_t size, size_t& got) override {
      got = 0;
      const Receive next = _script.empty() ? Receive{0, -1} : _script.front();
      if (_script.size() > 1) _script.pop_front();
      if (next.error || next.byte < 0 || size == 0) return next.error;
      *static_cast<char*>(buffer) = static_cast<char>(next.byte);
      got = 1;
      return 0;
    }
    platform::SocketWait waitReadable(uint32_t, int&) override {
      ++_owner.waits;
      return platform::SocketWait::timedOut;
    }

   private:
    Client _script;
  };

  class Listener : public Base {
   public:
    using Base::Base;
    platform::SocketWait waitReadable(uint32_t, int&) override {
      return _owner.clients.empty() && !_owner.clientsVanish ? platform::SocketWait::timedOut
                                                             : platform::SocketWait::ready;
    }
    int accept(std::unique_ptr<Socket>& out) override {
      if (_owner.clientsVanish) {
        _owner.blockedAccepts += _blocks;
        return platform::kWsaWouldBlock;
      }
      if (_owner.acceptError) return _owner.acceptError;
      out = std::make_unique<Accepted>(_owner, std::move(_owner.clients.front()));
      _owner.clients.pop_front();
      return 0;
    }
  };
};

// The current platform with other sockets, for a scope.
class OtherSockets {
 public:
  explicit OtherSockets(platform::Sockets& sockets)
      : _former(platform::current()),
        _platform{_former.clock,           _former.threading, _former.files, _former.registry,
                  _former.devices,         _former.processes, sockets,       _former.systemInfo,
                  _former.sharedLibraries, _former.pipes,     _former.rights} {}

 private:
  platform::Platform& _former;
  platform::Platform _platform;
  platform::OtherPlatform _other{_platform};
};

}  // namespace korvane::tests
