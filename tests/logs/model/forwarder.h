// What the model of event forwarding knows of an agent: a process over a disk that turns the lines
// of the detection component's logs into batches of records and hands them to a receiver.
//
// The model owns the machine and the receiver and calls the forwarder, all on one thread. A
// forwarder holds nothing that outlives its process but what it wrote through Machine::files().
//
//   auto forwarder = makeAgentForwarder(machine, receiver);
//   forwarder->start(settings);
//   machine.clock.advance(2000);
//   forwarder->pass();             // batches arrive at the receiver from within
//   if (machine.killed()) forwarder->kill();
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ledger/loss_ledger.h"
#include "platform/fake/manual_clock.h"
#include "platform/files.h"

namespace korvane::log_model {

// A record as it arrives: names and values (UTF-8) in their order on the wire.
using Record = std::vector<std::pair<std::string, std::string>>;
using Batch = std::vector<Record>;

// What became of a batch.
enum class Outcome {
  answered,    // it arrived, and the answer with `code` came back
  answerLost,  // it arrived whole, and no answer came back
  notArrived,  // nothing arrived
};

// `code` of an answer. Service type 1: the server's application error (0, 302, 400, 600,
// others). The other types: the acknowledgement's code (0, 429, 430, others). `code` of the
// two other outcomes: 0, or for service type 1 the transport's result that the exchange
// gives (7, 28, 52, 56; above 200: an HTTP status).
struct Answer {
  Outcome outcome = Outcome::answered;
  int code = 0;
};

class Receiver {
 public:
  virtual ~Receiver() = default;
  // Every try to send a batch is one call. The forwarder's process may have been killed already (it
  // ran on over a dead disk): such a batch did not arrive, and the answer says so.
  virtual Answer take(const Batch& batch) = 0;
};

class Machine {
 public:
  virtual ~Machine() = default;
  // The disk as the present process sees it; fetched anew at every start(). The n-th call
  // may kill the process: that call and all later ones through this object, and through
  // files opened from it, then do nothing and give EIO. Nothing is thrown; the process runs
  // on until pass() returns, and is kill()ed then. The object lives as long as the machine.
  // "/" separates, and ".." is resolved.
  virtual platform::Files& files() = 0;
  // The process has been killed by a file call.
  virtual bool killed() const = 0;
  // Directory that holds "IPS" and "IDS"; both are there, with IDS/ids.properties.
  virtual std::string installRoot() const = 0;

  platform::ManualClock clock;  // moved by the model alone, between calls of the forwarder
};

struct Settings {
  int serviceType = 1;         // 1: HTTPS; 2: the carrier's pipe, its "policyBuffer" switch on
  int readerLimit = 300;       // log.reader.limit
  int writerLimit = 1;         // log.writer.limit
  bool consolidate = true;     // log.consolidate
  int consolidateMinutes = 5;  // log.consolidate.value
};

// An agent's event forwarding (the real-time event log alone).
//
// HTTPS destination: the scripted transport stands where libcurl does. It takes the message
// body apart by the declared lengths (a "text/plain" section named "properties" a record, a
// pair a line, split at the first "=", then EOF_FLAG), calls Receiver::take with what it found
// and gives the answer back: `answered` as HTTP 200 with the code in Korvane-Error,
// `answerLost` and `notArrived` as `code` or, when that is 0, as libcurl's 56 and 7. A body
// that does not come apart exactly is the adapter's to report as a failure. After an answer
// 400 the agent counts as registered again before the next pass.
// RPC destination: a scripted carrier at the event pipe, attached before a notice is sent. It takes
// the notice's JSON apart, calls Receiver::take, and answers: `answered` with RPC_EVENT_SENT and
// RPC_EVENT_ACK of that code, in either order; `answerLost` by leaving after the notice has been
// read whole, with or without the sent signal; `notArrived` by leaving before. A throttled notice
// comes again within the same pass, as a take() of its own. It attaches again before the next try.
// All pauses pass at once, on the adapter's account: nothing waits for real.
class Forwarder {
 public:
  virtual ~Forwarder() = default;
  // A new process begins over the disk as it stands, with these settings in force, up to where its
  // first pass could begin: what the agent does at its start to learn the names of the logs has
  // been done. Called when none runs. May be killed by a file call in it.
  virtual void start(const Settings& settings) = 0;
  // What the log processing thread does every second cycle: a reading pass and the writing
  // pass behind it. The model has moved the clock by what the thread would have slept.
  // Returns also when the process was killed or when it disabled its processor (that shows
  // as events that never come).
  virtual void pass() = 0;
  // The process is gone: everything in memory is dropped, nothing further is written or sent. What
  // destructors still try does not reach the disk, since the model has cut it off.
  virtual void kill() = 0;
  // The process's account of its log, and what it has entered as lost.
  virtual LedgerView ledger() const = 0;
  // An orderly stop between two passes, as the thread's end and deletion do it.
  virtual void stop() = 0;
};

// The agent's own code behind the interface.
std::unique_ptr<Forwarder> makeAgentForwarder(Machine& machine, Receiver& receiver);

}  // namespace korvane::log_model
