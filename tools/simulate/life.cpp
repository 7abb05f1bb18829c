#include "simulate/life.h"

#include "comm/https_handler.h"
#include "config/install_root.h"
#include "platform/error_codes.h"
#include "rpc/pipe_names.h"
#include "simulate/line_to_server.h"

namespace korvane::simulation {

using platform::FakeDevices;
using platform::OpenMode;

namespace {

constexpr uint16_t kNotificationPort = 2222;

}  // namespace

Life::Life(Machine& machine, platform::Event& attention)
    : line(machine.callKinds),
      fake(machine.sim),
      _machine(machine),
      _attention(attention),
      _files(
          line,
          [&machine](OpenMode mode, const std::string& what) { return machine.disk(mode, what); },
          machine.files()),
      _registry(
          line,
          [&machine](std::string_view key) {
            return key.find("TestForPrevention") != std::string_view::npos &&
                   machine.troubles.driver != Troubles::Driver::absent;
          },
          machine.registry),
      _threads(line, machine.sim),
      _children(
          line, [&machine] { return machine.translatorRefusal(); }, fake.processes),
      _system{machine.sim.clock(), _threads,   _files,       _registry,
              fake.devices,        _children,  fake.sockets, fake.systemInfo,
              fake.libraries,      fake.pipes, fake.rights},
      _run(platform::makeRun(_system)),
      _watchedRun(_run) {
  serve();
  line.onKill = [this] {
    _files.releaseLocks();
    _attention.set();
  };
  const AgentRunScope inRun(_run);
  HttpsHandler::setTransport(std::make_unique<LineToServer>(machine, line));
  _host = machine.sim.createThread(0, [this] {
    _place.run([this] { return _run; });
    // Look-ups that are left behind end when the resolver gives up.
    fake.sockets.setResolverHangs(false);
    _ended = true;
    _endedAt = _machine.now();
    _attention.set();
  });
}

Life::~Life() = default;

void Life::serve() {
  fake.pipes.setWakes(_machine.random.chance(80));
  fake.devices.setOpenError(
      _machine.troubles.driver == Troubles::Driver::absent ? platform::kErrorFileNotFound : 0);
  fake.devices.setHandler(
      [this](const FakeDevices::Call& call) { return _machine.drive(call, line); });
  fake.sockets.setResolverHangs(_machine.troubles.resolverHangs);
  fake.processes.install(
      std::string(kRoot) + "/IPS/bin/translate", [this](const std::string& arguments) {
        return line.dead() ? platform::ProgramRun{1, 0} : _machine.translator(arguments);
      });
}

void Life::stop() {
  if (!_stopper) _stopper = _machine.sim.createThread(0, [this] { _place.end(); });
}

size_t Life::handles() {
  _run.reset();
  return line.handles + static_cast<size_t>(fake.devices.openDevices()) +
         static_cast<size_t>(fake.devices.openRequests()) +
         static_cast<size_t>(fake.libraries.loaded()) + (_watchedRun.expired() ? 0 : 1);
}

bool Life::notify(uint8_t byte) {
  std::unique_ptr<platform::Socket> socket;
  size_t sent = 0;
  return fake.sockets.createTcp(socket) == 0 &&
         socket->connect("127.0.0.1", kNotificationPort, 0) == 0 &&
         socket->send(&byte, 1, sent) == 0;
}

void Life::disturbLocalChannel() {
  std::unique_ptr<platform::Pipe> pipe;
  if (fake.pipes.open(kLocalPipe, pipe)) return;
  ++_machine.counts["odd clients of the local channel"];
  std::string bytes;
  for (int left = _machine.random.below(40); left > 0; --left)
    bytes += static_cast<char>(_machine.random.below(_machine.random.chance(50) ? 3 : 256));
  size_t written = 0;
  ignoreResult(pipe->write(bytes.data(), bytes.size(), written));
  if (_machine.random.chance(50)) _machine.sim.runFor(_machine.random.below(3000));
}

}  // namespace korvane::simulation
