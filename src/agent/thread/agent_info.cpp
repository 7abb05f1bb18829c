#include "agent/thread/agent_info.h"

#include <algorithm>
#include <cstring>

namespace korvane {

AgentInfo::~AgentInfo() = default;

void AgentInfo::post(const AgentCommand& command) {
  Synchronized hold(_lock);
  _commands.push_back(command);
  ++_count;
  _pending.store(1, std::memory_order_release);
}

int32_t AgentInfo::count() const {
  Synchronized hold(_lock);
  return _count;
}

bool AgentInfo::pending() const {
  return _pending.load(std::memory_order_acquire) != 0;
}

bool AgentInfo::command(int32_t index, int32_t& code, char* name, size_t nameSize) const {
  Synchronized hold(_lock);
  if (index < 0 || index >= _count) return false;
  const AgentCommand& found = _commands[static_cast<size_t>(index)];
  code = found.code;
  if (nameSize == 0) return true;
  const std::string text = found.name.toUtf8();
  const size_t length = std::min(text.size(), nameSize - 1);
  std::memcpy(name, text.data(), length);
  name[length] = '\0';
  return true;
}

}  // namespace korvane
