// The command mailbox between the agent and its host.
//
// The agent makes one when it starts, hands it to its threads, and gives it to the host when
// startAgent returns; it belongs to the library and stays valid until the next startAgent. Posting
// a command requests the end of the agent: the main loop exits at its next check of pending().
//
// A host may include this header without linking the library: everything it needs of an AgentInfo
// that it was given is virtual and takes plain types.
//
// Threads: any, at any time. Nothing here throws across the boundary.
//
//   AgentInfo* info = startAgent();
//   int32_t code;
//   char name[64];
//   for (int32_t i = 0; info && info->command(i, code, name, sizeof name); ++i) ...
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "agent/thread/locks.h"
#include "util/string.h"

namespace korvane {

struct AgentCommand {
  int32_t code = 0;
  STRING name;
};

// The one command that the agent itself posts: it has ended on its own, the service should exit.
inline constexpr int32_t kExitServiceCommand = 2;
inline constexpr const char* kExitServiceName = "ACMD_ExitService";

class AgentInfo {
 public:
  AgentInfo() = default;
  virtual ~AgentInfo();
  AgentInfo(const AgentInfo&) = delete;
  AgentInfo& operator=(const AgentInfo&) = delete;

  // Keeps a copy of the command and marks the mailbox as pending.
  virtual void post(const AgentCommand& command);
  // How many commands have been posted so far.
  virtual int32_t count() const;
  // True from the first command on.
  virtual bool pending() const;
  // The command at `index`, from 0 in the order of posting: its code, and its name as UTF-8, cut to
  // nameSize - 1 bytes and terminated. False when there is none.
  virtual bool command(int32_t index, int32_t& code, char* name, size_t nameSize) const;

 private:
  int32_t _count GUARDED_BY(_lock) = 0;
  std::vector<AgentCommand> _commands GUARDED_BY(_lock);
  mutable Win32Mutex _lock;
  std::atomic<int32_t> _pending{0};
};

}  // namespace korvane
