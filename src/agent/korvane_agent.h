// The agent: its main routine, its worker threads and its shutdown. docs/architecture.md tells the
// whole story, the orders and the stop contract.
//
// Lifetime: one object for each start. Threads: run() is called once, on the thread that the host
// gave; shutdown() may be called by any other thread, at any time, any number of times. The two
// meet through _stopped, _running and the run's shutdown token. Nothing throws out of either: an
// error ends the main routine as a stop does, with event 10561; a step of the stop that fails is
// event 10562, and the remaining ones are still carried out.
//
// Start: run() returns when the agent has stopped: after shutdown(), after a command in the
//   AgentInfo, or after a registration that failed for good (the self-exit path, which
//   posts "ACMD_ExitService").
// Stop: shutdown() ends every wait of the agent, asks the worker threads to stop, waits for them,
//   deletes them, and then waits without limit until run() has returned. A stop takes at most two
//   seconds; the one exception is the self-exit path after the start, whose final wait never ends.
//
//   KorvaneAgent agent{contextOfRun()};
//   agent.run(&info);                      // on the host's thread
//   agent.shutdown();                      // on another
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "agent/agent_context.h"
#include "agent/driver_watch.h"
#include "agent/thread/locks.h"
#include "agent/thread/thread_event.h"
#include "agent/worker_threads.h"
#include "comm/agent_comm.h"

namespace korvane {

class AgentInfo;

class KorvaneAgent {
 public:
  explicit KorvaneAgent(const AgentContext& context);
  ~KorvaneAgent();
  KorvaneAgent(const KorvaneAgent&) = delete;
  KorvaneAgent& operator=(const KorvaneAgent&) = delete;

  // The main routine. `info` may be null; it outlives the call.
  void run(AgentInfo* info);

  // untilReturned: comes back only when run() has returned. none: the main routine ends the
  // agent itself.
  enum class FinalWait { untilReturned, none };
  void shutdown(FinalWait finalWait = FinalWait::untilReturned);

  bool running() const { return _running != 0; }

 private:
  void mainRoutine();
  // Its steps, in this order; false means that registration has failed for good.
  void begin();
  void initializeTranslator();
  void createComm();
  void tellServer();
  void startComponentUpdate();
  [[nodiscard]] bool registerAtStart();
  void checkBuiltinPolicy();
  void reportPolicyState();
  void startAppData();
  [[nodiscard]] bool startServerThreads();
  [[nodiscard]] bool awaitFirstUpdate();
  void startLogThreads();
  bool supervise();
  bool superviseOnce();
  void followBuiltinPolicy();
  void followOwnLog();
  void selfExit();
  void end();
  void endAfter(const char* error);
  // Translator and sockets closed, 10110, and run() counts as returned.
  void closeDown();

  [[nodiscard]] bool registerNow();
  bool stopping() const;
  bool commandPending() const;
  void pause(uint32_t milliseconds);
  void stopComm();
  void returned();
  void awaitReturn() noexcept;

  const AgentContext _context;
  const Settings& _settings;  // the context's
  std::atomic<int32_t> _stopped{0};
  std::atomic<uint8_t> _running{0};
  std::unique_ptr<AgentComm> _comm;  // made once, under _commLock; the pointer is then constant
  WorkerThreads _workers;
  DriverWatch _driverWatch;  // main thread only

  AgentInfo* _info = nullptr;
  uint8_t _builtinReported = 0;  // main thread only
  bool _iniDirty = false;        // main thread only
  Win32Mutex _commLock;
  Win32Mutex _shutdownLock;  // one shutdown routine at a time, up to its final wait
  ThreadEvent _stoppedEvent;
  ThreadEvent _returnedEvent;
};

}  // namespace korvane
