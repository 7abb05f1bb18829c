// What the update thread and the agent hand to their steps, for tests of one step.
#pragma once

#include "config/agent_config.h"
#include "platform/platform.h"
#include "update/component_update_thread.h"
#include "update/content_update.h"
#include "update/software_update.h"
#include "update/update_parts.h"

namespace korvane::tests {

inline ContentUpdate::Parts contentParts() {
  const UpdateParts all = updatePartsOfRun();
  return {all.content,         all.policy.clock,      all.settings.policy,
          all.settings.server, all.policy.connection, all.policy.stop};
}

inline SoftwareUpdate::Parts softwareParts() {
  const UpdateParts all = updatePartsOfRun();
  return {all.policy.files,     all.policy.clock,    all.settings.server, all.policy.connection,
          all.settings.updates, all.settings.policy, all.settings.file,   all.policy.stop};
}

inline ComponentUpdateThread::Parts componentParts() {
  return {contentPartsOfRun(), platform::current().clock, &AgentConfig::getHIDSInterface};
}

// Stores, unpacks and reports one package.
inline int receiveContent(int kind, const std::string& bytes, const STRING& directory) {
  PendingUpdates pending;
  RetryGroup retry;
  return ContentUpdate(contentParts(), pending, retry)
      .processComponentData(kind, &bytes, directory);
}

}  // namespace korvane::tests
