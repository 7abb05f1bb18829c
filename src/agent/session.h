// The runs of the agent in one process, one at a time: which may start, and which is stopped.
//
// Threads: any. endSession() may come at any moment, any number of times at once. One that comes while a start
// is put together ends what that waits for and does not wait for its end; the run then has no agent. One that
// comes before does nothing. Nothing throws out of either, and whatever fails in a run or in its
// stop, the calls return and the next start can proceed.
#pragma once

namespace korvane {

class AgentInfo;

// Runs an agent on the calling thread until it has stopped, or was stopped before it was made. `adoptPlatform` is called once the start is sure to be
// the only one. The AgentInfo lives until the next start; null when an agent runs already, when this one could
// not be put together, or when there was no memory for the AgentInfo.
AgentInfo* runSession(void (*adoptPlatform)());

// Stops the agent that runs, if one does; returns when its main routine is over.
void endSession();

}  // namespace korvane
