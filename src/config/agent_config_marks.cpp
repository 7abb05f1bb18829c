// The state of the run that is in no file.
#include <utility>

#include "config/agent_config.h"
#include "config/agent_config_state.h"

namespace korvane {
namespace {

constexpr size_t kMaxNamesSeen = 1000;

template <class T>
T readMark(const AgentConfigState& state, T AgentConfigState::*mark) {
  const Synchronized hold(state.lock);
  return state.*mark;
}

template <class T>
void setMark(AgentConfigState& state, T AgentConfigState::*mark, const T& value) {
  const Synchronized hold(state.lock);
  state.*mark = value;
}

}  // namespace

// clang-format off

bool AgentConfig::getRetranslateIDSNow() const { return readMark(*_state, &AgentConfigState::retranslateIdsNow); }
void AgentConfig::setRetranslateIDSNow(bool value) { setMark(*_state, &AgentConfigState::retranslateIdsNow, value); }
bool AgentConfig::isRetranslationActive() const { return readMark(*_state, &AgentConfigState::retranslationActive); }
void AgentConfig::setRetranslationActive(bool value) { setMark(*_state, &AgentConfigState::retranslationActive, value); }
int AgentConfig::getIPSServiceStatus() const { return readMark(*_state, &AgentConfigState::ipsServiceStatus); }
void AgentConfig::setIPSServiceStatus(int value) { setMark(*_state, &AgentConfigState::ipsServiceStatus, value); }
bool AgentConfig::isIPSEnforced() const { return readMark(*_state, &AgentConfigState::ipsEnforced); }
void AgentConfig::setIPSEnforced(bool value) { setMark(*_state, &AgentConfigState::ipsEnforced, value); }
int64_t AgentConfig::getPolicyEffectiveDate() const { return readMark(*_state, &AgentConfigState::policyEffectiveDate); }
void AgentConfig::setPolicyEffectiveDate(int64_t value) { setMark(*_state, &AgentConfigState::policyEffectiveDate, value); }
bool AgentConfig::isFirstUpdateDone() const { return readMark(*_state, &AgentConfigState::firstUpdateDone); }
void AgentConfig::setFirstUpdateDone() { setFirstUpdateDone(true); }
void AgentConfig::setFirstUpdateDone(bool value) { setMark(*_state, &AgentConfigState::firstUpdateDone, value); }
int AgentConfig::getWhoIsRunning() const { return readMark(*_state, &AgentConfigState::whoIsRunning); }
void AgentConfig::setWhoIsRunning(int value) { setMark(*_state, &AgentConfigState::whoIsRunning, value); }
bool AgentConfig::isLocalAppDiscoveryOn() const { return readMark(*_state, &AgentConfigState::localDiscoveryOn); }
void AgentConfig::setLocalAppDiscoveryOn(bool value) { setMark(*_state, &AgentConfigState::localDiscoveryOn, value); }
bool AgentConfig::isCloudAppDiscoveryOn() const { return readMark(*_state, &AgentConfigState::cloudDiscoveryOn); }
void AgentConfig::setCloudAppDiscoveryOn(bool value) { setMark(*_state, &AgentConfigState::cloudDiscoveryOn, value); }
STRING AgentConfig::getHIDSLogFile() const { return readMark(*_state, &AgentConfigState::hidsLogFile); }
void AgentConfig::setHIDSLogFile(const STRING& value) { setMark(*_state, &AgentConfigState::hidsLogFile, value); }
STRING AgentConfig::getHIDSRTLogFile() const { return readMark(*_state, &AgentConfigState::hidsRtLogFile); }

// clang-format on

void AgentConfig::setHIDSRTLogFile(const STRING& value) {
  const Synchronized hold(_state->lock);
  if (_state->hidsRtLogFile == value) return;
  _state->hidsRtLogFile = value;
  if (_state->hidsRtLogFilesSeen.size() < kMaxNamesSeen)
    _state->hidsRtLogFilesSeen.push_back(value);
}

std::vector<STRING> AgentConfig::takeHIDSRTLogFilesSeen() {
  const Synchronized hold(_state->lock);
  return std::exchange(_state->hidsRtLogFilesSeen, {});
}

}  // namespace korvane
