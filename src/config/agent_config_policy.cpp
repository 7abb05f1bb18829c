// FIPS, prevention, reboot state, and the state and error of the policy.
#include <utility>

#include "config/agent_config.h"
#include "config/agent_config_state.h"
#include "eventlog/event_log.h"
#include "platform/error_codes.h"
#include "platform/platform.h"
#include "platform/registry.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kDriverParameters[] =
    "SYSTEM\\CurrentControlSet\\Services\\KAVIPSDriver\\Parameters";

const char* word(bool value) {
  return value ? "true" : "false";
}

// The driver's "RebootRequired", a dword or a text; a missing value means that none is outstanding.
bool rebootOutstanding() {
  platform::Registry& registry = platform::current().registry;
  uint32_t number = 0;
  if (registry.readDword(kDriverParameters, "RebootRequired", number) == platform::kOk) {
    return number != 0;
  }
  STRING text;
  if (registry.readString(kDriverParameters, "RebootRequired", text) != platform::kOk) return false;
  text = text.trimmed();
  return text.toBool() || (!text.empty() && text.toInt() != 0);
}

}  // namespace

void AgentConfig::setFipsEnabled(bool enabled) {
  const ChangeGroup group(*this);
  const Synchronized hold(_state->lock);
  // No value of this kind is refused.
  ignoreResult(_state->assign(rowOf(Key::fipsEnabled), STRING::fromBool(enabled)));
  _state->fipsOutstanding = true;
}

bool AgentConfig::useBuiltInPolicyChanged() const {
  const Synchronized hold(_state->lock);
  const bool wanted = _state->settings.number(Key::useBuiltInPolicy) != 0;
  return wanted != _state->acknowledgedBuiltIn;
}

void AgentConfig::updatedDriverForBuiltIn() {
  const Synchronized hold(_state->lock);
  _state->acknowledgedBuiltIn = _state->settings.number(Key::useBuiltInPolicy) != 0;
}

bool AgentConfig::isIPSRebootDone() const {
  return !isIPSRebootRequired();
}
bool AgentConfig::isFIMRebootDone() const {
  return !isFIMRebootRequired();
}

bool AgentConfig::isSystemRebootDone() const {
  const bool done = !rebootOutstanding();
  eventlog::trace("AgentConfig::isSystemRebootDone", "System reboot done...? [%s]", word(done));
  return done;
}

void AgentConfig::updateRebootRequiredFlag() {
  const bool required = rebootOutstanding();
  eventlog::trace("AgentConfig::updateRebootRequiredFlag", "Reboot required? [%s]", word(required));
  const ChangeGroup group(*this);
  const Synchronized hold(_state->lock);
  const bool wasRequired = _state->settings.number(Key::ipsRebootRequired) != 0;
  // No value of this kind is refused.
  ignoreResult(_state->assign(rowOf(Key::ipsRebootRequired), STRING::fromBool(required)));
  if (!wasRequired || required) return;
  for (const Key key : {Key::rebootRequested, Key::fimRebootRequired, Key::fimRebootRequested}) {
    ignoreResult(_state->assign(rowOf(key), "false"));
  }
  ignoreResult(_state->assign(rowOf(Key::rebootSource), {}));
}

void AgentConfig::setPolicyState(int code, const STRING& text) {
  const Synchronized hold(_state->lock);
  _state->policyStateChanged = true;
  if (code == _state->policyState && text == _state->policyStateText) return;
  _state->policyState = code;
  _state->policyStateText = text;
  _state->realPolicyStateChanged = true;
}

void AgentConfig::leaveBuiltInState() {
  const Synchronized hold(_state->lock);
  if (_state->policyState != kBuiltInPolicyState) return;
  _state->policyState = 0;
  _state->policyStateText.clear();
}

int AgentConfig::getPolicyStateCode() const {
  const Synchronized hold(_state->lock);
  return _state->policyState;
}

STRING AgentConfig::getPolicyStateStr() const {
  const Synchronized hold(_state->lock);
  return _state->policyStateText;
}

bool AgentConfig::hasPolicyStateChanged() const {
  const Synchronized hold(_state->lock);
  return _state->policyStateChanged;
}

bool AgentConfig::hasRealPolicyStateChanged() const {
  const Synchronized hold(_state->lock);
  return _state->realPolicyStateChanged;
}

void AgentConfig::setPolicyStateChanged(bool changed) {
  const Synchronized hold(_state->lock);
  _state->policyStateChanged = changed;
  if (!changed) _state->realPolicyStateChanged = false;
}

void AgentConfig::setPolicyError(int code, const STRING& text) {
  const ChangeGroup group(*this);
  const Synchronized hold(_state->lock);
  // A text that is too long for the file is refused; the code says enough then.
  ignoreResult(_state->assign(rowOf(Key::policyErrorCode), STRING::fromInt(code)));
  ignoreResult(_state->assign(rowOf(Key::policyErrorString), text));
  _state->policyErrorText = oneLine(text);
}

int AgentConfig::getPolicyErrorCode() const {
  return _state->number(Key::policyErrorCode);
}

// The file keeps no blank at a value's end, the server is told the text as it was set.
STRING AgentConfig::getPolicyErrorStr() const {
  const Synchronized hold(_state->lock);
  const STRING stored = _state->settings.text(Key::policyErrorString);
  return _state->policyErrorText.trimmed() == stored ? _state->policyErrorText : stored;
}

bool AgentConfig::hasPolicyErrorChanged() const {
  const Synchronized hold(_state->lock);
  return _state->errorChangeForced ||
         _state->settings.number(Key::policyErrorCode) != _state->reportedError ||
         _state->settings.text(Key::policyErrorString) != _state->reportedErrorText;
}

void AgentConfig::setPolicyErrorChanged(bool changed) {
  const Synchronized hold(_state->lock);
  _state->errorChangeForced = changed;
  if (changed) return;
  _state->reportedError = static_cast<int>(_state->settings.number(Key::policyErrorCode));
  _state->reportedErrorText = _state->settings.text(Key::policyErrorString);
}

}  // namespace korvane
