// Throws broken frames and messages at the real server with all methods of the local channel, over
// the system's own pipe, and asks a good question in between, which must be answered each time:
//
//   channel_hammer [--throws N] [--seed N]
//
// A throw is one frame, or one whole message. Ends with one line of figures; exit status 1 at the
// first good request that stays without its answer.
#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "cloud/local_methods.h"
#include "comm/server_connection.h"
#include "config/settings.h"
#include "discovery/app_data_requests.h"
#include "driver/driver.h"
#include "ledger/loss_ledger.h"
#include "logs/forwarding_counters.h"
#include "platform/fake/fake_platform.h"
#include "rpc/fifo_frame.h"
#include "rpc/rpc_named_pipe.h"
#include "tests/rpc/pipe_worlds.h"

namespace korvane {
namespace {

using namespace platform;

constexpr int kLongMs = 30000;
constexpr char kGood[] = R"({"jsonrpc":"2.0","id":77,"name":"getTechNames"})";
constexpr char kGoodAnswer[] = R"({"jsonrpc":"2.0","id":"77","result":{"names":"IPS"}})";

const std::vector<std::string> kRequests = {
    R"({"jsonrpc":"2.0","id":1,"name":"getTechStatus"})",
    R"({"jsonrpc":"2.0","id":2,"name":"getStatus","params":{}})",
    R"({"jsonrpc":"2.0","id":3,"name":"getSettings","params":{"keys":["polling.interval","agent.id"]}})",
    R"({"jsonrpc":"2.0","id":4,"name":"setSettings","params":{"settings":{"agent.name":"n","tcp.port":"1"}}})",
    R"({"jsonrpc":"2.0","id":5,"name":"setTrace","params":{"on":"false"}})",
    R"({"jsonrpc":"2.0","id":6,"name":"getPolicy"})",
    R"({"jsonrpc":"2.0","id":7,"name":"queryDriver"})",
    R"({"jsonrpc":"2.0","id":8,"name":"testConnection"})",
    R"({"jsonrpc":"2.0","id":9,"name":"getLogPointers"})",
    R"({"jsonrpc":"2.0","id":10,"name":"getCounters"})",
    R"({"jsonrpc":"2.0","id":11,"name":"getDiagnostics","params":{"piece":0,"snapshot":"1"}})",
    R"({"jsonrpc":"2.0","id":12,"name":"retranslate"})",
    R"({"jsonrpc":"2.0","id":13,"name":"collectApplicationData"})",
    R"({"jsonrpc":"2.0","id":14,"name":"getApplicationData","params":{"piece":0,"snapshot":"1"}})",
    R"({"jsonrpc":"2.0","id":15,"name":"releaseApplicationData"})",
};

// Fakes in place of everything but pipes, threads and time.
struct Machine {
  FakePlatform fake;
  std::unique_ptr<Clock> clock = makeNativeClock();
  std::unique_ptr<Threading> threading = makeNativeThreading();
  tests::NativePipes native;
  Platform platform{*clock,         *threading,     fake.files,   fake.registry,
                    fake.devices,   fake.processes, fake.sockets, fake.systemInfo,
                    fake.libraries, native.pipes,   fake.rights};
  CurrentPlatform current{platform};
  const std::string name = tests::uniquePipeName();
};

class Serving {
 public:
  explicit Serving(Machine& machine)
      : _counters(*machine.clock),
        _ledger(machine.fake.files, *machine.clock),
        _parts{machine.fake.files,
               *machine.clock,
               machine.fake.systemInfo,
               _settings.server,
               _settings.policy,
               _settings.logs,
               _settings.file,
               currentDriver(),
               currentConnection(),
               _counters,
               _ledger,
               {{_settings.updates, _settings.file},
                AgentRun::current().part<AppDataRequests>(RunPart::applicationData),
                /*keepsResults=*/true}},
        _transport(machine.native.pipes, *machine.clock, machine.name, RPCNamedPipe::Role::server),
        _server(_transport, *machine.clock) {
    _about.techStatus = [] { return std::string("IPS Online\n"); };
    _about.techNames = [] { return std::string("IPS"); };
    _about.version = [] { return std::string("1.0"); };
    _about.started = _about.shuttingDown = [] { return false; };
    addLocalMethods(_server, _about, _parts);
    _transport.start();
    _thread = machine.threading->createThread(0, [this] { _server.run(_stop); });
  }
  ~Serving() {
    _stop.request();
    _thread->join(kInfinite);
  }

 private:
  const Settings _settings = settingsOf(*AgentConfig::getInstance());
  ForwardingCounters _counters;
  LossLedger _ledger;
  const LocalParts _parts;
  AboutAgent _about;
  RPCNamedPipe _transport;
  RPCServer _server;
  StopToken _stop;
  std::unique_ptr<NativeThread> _thread;
};

class Hammer {
 public:
  Hammer(Machine& machine, uint64_t seed)
      : _fifo(machine.native.pipes, *machine.clock, machine.name), _random(seed) {}

  // False when a good request was not answered.
  bool run(int throws) {
    void (Hammer::*const ways[])() = {&Hammer::messages,     &Hammer::messages,
                                      &Hammer::randomFrames, &Hammer::halfAFrame,
                                      &Hammer::tooLong,      &Hammer::begunMessage};
    while (_thrown < throws) {
      if (!connect()) return false;
      (this->*ways[below(std::size(ways))])();
      if (below(4) == 0) _fifo.close();  // without waiting for what comes
      if (!good()) return false;
    }
    return true;
  }
  void report() const {
    std::printf("{\"throws\": %d, \"connections\": %d, \"answers\": %d, \"good_requests\": %d}\n",
                _thrown, _connections, _answers, _good);
  }

 private:
  size_t below(size_t count) { return static_cast<size_t>(_random() % count); }

  bool connect() {
    for (int i = 0; i < kLongMs && !_fifo.isOpen(); ++i) {
      if (_fifo.open())
        ++_connections;
      else
        _never.sleepFor(1);
    }
    return _fifo.isOpen();
  }

  // Any client may be disconnected and come again; in the end the answer comes.
  bool good() {
    std::string answer;
    for (int i = 0; i < 100 && connect(); ++i) {
      if (_fifo.writeMessage(kGood, kLongMs)) {
        while (_fifo.readMessage(answer, kLongMs, kLongMs))
          if (answer == kGoodAnswer) return ++_good;
      }
      _fifo.close();
    }
    std::printf("no answer to the good request after %d throws\n", _thrown);
    return false;
  }

  std::string randomText(size_t most) {
    std::string text(below(most), 0);
    for (char& c : text) c = static_cast<char>(_random());
    return text;
  }

  std::string mutated() {
    std::string text = kRequests[below(kRequests.size())];
    for (size_t changes = below(4); changes > 0 && !text.empty(); --changes) {
      const size_t at = below(text.size());
      switch (below(5)) {
        case 0:
          text[at] = static_cast<char>(_random());
          break;
        case 1:
          text.erase(at, below(8));
          break;
        case 2:
          text.insert(at, text.substr(below(text.size()), below(40)));
          break;
        case 3:
          text.insert(at, std::string(below(300), "[{\"9,\\"[below(6)]));
          break;
        default:
          text.insert(at, randomText(20));
      }
    }
    return below(20) == 0 ? randomText(20000) : text;
  }

  // Each whole message is answered, whatever it says.
  void messages() {
    std::string answer;
    for (size_t count = 1 + below(40); count > 0; --count) {
      ++_thrown;
      if (!_fifo.writeMessage(mutated(), kLongMs)) return;
      if (!_fifo.readMessage(answer, kLongMs, kLongMs)) return;
      ++_answers;
    }
  }

  void send(const std::string& bytes) {
    ++_thrown;
    if (_fifo.isOpen()) _fifo.writeBytes(bytes.data(), bytes.size(), kLongMs);
  }

  std::string frame(uint32_t length) {
    std::string bytes = randomText(Fifo::kFrameBytes);
    bytes.resize(Fifo::kFrameBytes, 'x');
    putHeader(bytes.data(), length);
    return bytes;
  }

  void randomFrames() {
    for (size_t count = 1 + below(60); count > 0; --count) {
      std::string bytes = frame(0);
      bytes[below(4)] = static_cast<char>(_random());
      send(bytes);
    }
  }

  void halfAFrame() {
    send(frame(static_cast<uint32_t>(_random() % 9000)).substr(0, 1 + below(4095)));
    _fifo.close();
  }

  void tooLong() {
    for (const uint32_t length : {0xFFFFFFFFu, (8u << 20) + 1, 0x80000000u}) send(frame(length));
  }

  void begunMessage() {
    send(frame(1u << 20));
    for (size_t count = below(30); count > 0; --count) send(frame(1u << 20));
    _fifo.close();
  }

  Fifo _fifo;
  std::mt19937_64 _random;
  StopToken _never;
  int _thrown = 0, _connections = 0, _answers = 0, _good = 0;
};

int hammer(int argc, char** argv) {
  std::map<std::string, long long> options = {{"--throws", 2000}, {"--seed", 1}};
  for (int i = 1; i + 1 < argc; i += 2) options[argv[i]] = std::atoll(argv[i + 1]);
  Machine machine;
  Hammer hammer(machine, static_cast<uint64_t>(options["--seed"]));
  bool ok = false;
  {
    Serving serving(machine);
    ok = hammer.run(static_cast<int>(options["--throws"]));
  }
  hammer.report();
  AgentConfig::freeInstance();
  return ok ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace
}  // namespace korvane

int main(int argc, char** argv) {
  return korvane::hammer(argc, argv);
}
