// What the thread primitives have from the run that the calling thread is in. Threads: any.
//
// Their constructors are fixed, so they cannot be handed it: here alone they ask for it.
#pragma once

#include <atomic>
#include <memory>

#include "platform/fwd.h"

namespace korvane {

class AgentRun;
class ThreadKey;

// A share of the run, for a thread that is made in it.
std::shared_ptr<AgentRun> thisRun();
platform::Threading& threadingOfThisRun();
// Under which each thread of the run finds its Thread.
ThreadKey& threadKeyOfThisRun();
// How many threads were left running.
std::atomic<int>& abandonedThreadsOfThisRun();

}  // namespace korvane
