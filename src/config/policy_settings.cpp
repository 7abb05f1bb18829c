#include "config/policy_settings.h"

#include "config/change_group.h"
#include "config/settings_store.h"
#include "eventlog/event_log.h"
#include "platform/error_codes.h"
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
bool rebootOutstanding(platform::Registry& registry) {
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

bool PolicySettings::useBuiltInPolicyChanged() const {
  return useBuiltInPolicy() != _acknowledgedBuiltIn;
}

void PolicySettings::updatedDriverForBuiltIn() {
  _acknowledgedBuiltIn = useBuiltInPolicy();
}

bool PolicySettings::isIPSRebootDone() const {
  return !isIPSRebootRequired();
}

bool PolicySettings::isFIMRebootDone() const {
  return !isFIMRebootRequired();
}

bool PolicySettings::isSystemRebootDone() const {
  const bool done = !rebootOutstanding(_registry);
  eventlog::trace("AgentConfig::isSystemRebootDone", "System reboot done...? [%s]", word(done));
  return done;
}

void PolicySettings::updateRebootRequiredFlag() {
  const bool required = rebootOutstanding(_registry);
  eventlog::trace("AgentConfig::updateRebootRequiredFlag", "Reboot required? [%s]", word(required));
  const ChangeGroup group(_store);
  const Synchronized hold(_store.lock);
  const bool wasRequired = _store.settings.number(Key::ipsRebootRequired) != 0;
  // No value of this kind is refused.
  ignoreResult(_store.assign(rowOf(Key::ipsRebootRequired), STRING::fromBool(required)));
  if (!wasRequired || required) return;
  for (const Key key : {Key::rebootRequested, Key::fimRebootRequired, Key::fimRebootRequested}) {
    ignoreResult(_store.assign(rowOf(key), "false"));
  }
  ignoreResult(_store.assign(rowOf(Key::rebootSource), {}));
}

void PolicySettings::setPolicyState(int code, const STRING& text) {
  const Synchronized hold(_lock);
  _stateChanged = true;
  if (code == _state && text == _stateText) return;
  _state = code;
  _stateText = text;
  _realStateChanged = true;
}

void PolicySettings::leaveBuiltInState() {
  const Synchronized hold(_lock);
  if (_state != kBuiltInPolicyState) return;
  _state = 0;
  _stateText.clear();
}

int PolicySettings::getPolicyStateCode() const {
  const Synchronized hold(_lock);
  return _state;
}

STRING PolicySettings::getPolicyStateStr() const {
  const Synchronized hold(_lock);
  return _stateText;
}

bool PolicySettings::hasPolicyStateChanged() const {
  const Synchronized hold(_lock);
  return _stateChanged;
}

bool PolicySettings::hasRealPolicyStateChanged() const {
  const Synchronized hold(_lock);
  return _realStateChanged;
}

void PolicySettings::setPolicyStateChanged(bool changed) {
  const Synchronized hold(_lock);
  _stateChanged = changed;
  if (!changed) _realStateChanged = false;
}

void PolicySettings::setPolicyError(int code, const STRING& text) {
  const ChangeGroup group(_store);
  const Synchronized hold(_lock);
  const Synchronized holdValues(_store.lock);  // both at once, for a reader as for the file
  // A text that is too long for the file is refused; the code says enough then.
  _store.change(Key::policyErrorCode, int64_t{code});
  _store.change(Key::policyErrorString, text);
  _errorText = oneLine(text);
}

int PolicySettings::getPolicyErrorCode() const {
  return _store.number(Key::policyErrorCode);
}

// The file keeps no blank at a value's end, the server is told the text as it was set.
STRING PolicySettings::getPolicyErrorStr() const {
  const Synchronized hold(_lock);
  const STRING stored = _store.text(Key::policyErrorString);
  return _errorText.trimmed() == stored ? _errorText : stored;
}

bool PolicySettings::hasPolicyErrorChanged() const {
  const Synchronized hold(_lock);
  return _errorChangeForced || _store.number(Key::policyErrorCode) != _reportedError ||
         _store.text(Key::policyErrorString) != _reportedErrorText;
}

void PolicySettings::setPolicyErrorChanged(bool changed) {
  const Synchronized hold(_lock);
  _errorChangeForced = changed;
  if (changed) return;
  const Synchronized holdValues(_store.lock);
  _reportedError = _store.number(Key::policyErrorCode);
  _reportedErrorText = _store.text(Key::policyErrorString);
}

// The settings of the table, one line each, and the marks of the run.
// clang-format off

// [System]
STRING PolicySettings::getSigningKeys() const { return _store.text(Key::signingKeys); }
uint32_t PolicySettings::getSigningMinimum() const { return _store.interval(Key::signingMinimum); }
// [AutoRetrans]
bool PolicySettings::autoRetransEnabled() const { return _store.flag(Key::autoRetransEnabled); }
void PolicySettings::setAutoRetransEnabled(bool value) { _store.change(Key::autoRetransEnabled, value); }
uint32_t PolicySettings::getAutoRetransInterval() const { return _store.interval(Key::autoRetransInterval); }
void PolicySettings::setAutoRetransInterval(uint32_t value) { _store.change(Key::autoRetransInterval, int64_t{value}); }
bool PolicySettings::getRetranslateNow() const { return _store.flag(Key::autoRetransNow); }
void PolicySettings::setRetranslateNow(bool value) { _store.change(Key::autoRetransNow, value); }
// [Driver] [Policy] [PolicyOverride]
STRING PolicySettings::getPlusPolicyFile() const { return _store.text(Key::plusPolicyFile); }
void PolicySettings::setPlusPolicyFile(const STRING& value) { _store.change(Key::plusPolicyFile, value); }
STRING PolicySettings::getPlusVersion() const { return _store.text(Key::policyName); }
void PolicySettings::setPlusVersion(const STRING& value) { _store.change(Key::policyName, value); }
STRING PolicySettings::getPlusID() const { return _store.text(Key::policyId); }
STRING PolicySettings::getPolicyID() const { return getPlusID(); }
void PolicySettings::setPlusID(const STRING& value) { _store.change(Key::policyId, value); }
void PolicySettings::setPolicyIdentity(const STRING& id, const STRING& version) {
  const ChangeGroup group(_store);
  setPlusID(id);
  setPlusVersion(version);
}
STRING PolicySettings::getPlusDBPath() const { return _store.text(Key::policyPath); }
void PolicySettings::setPlusDBPath(const STRING& value) { _store.change(Key::policyPath, value); }
bool PolicySettings::useBuiltInPolicy() const { return _store.flag(Key::useBuiltInPolicy); }
void PolicySettings::setUseBuiltInPolicy(bool value) { _store.change(Key::useBuiltInPolicy, value); }
bool PolicySettings::isIPSEnabled() const { return _store.flag(Key::ipsEnabled); }
void PolicySettings::setIPSEnabled(bool value) { _store.change(Key::ipsEnabled, value); }
bool PolicySettings::isIPSRebootRequired() const { return _store.flag(Key::ipsRebootRequired); }
void PolicySettings::setIPSRebootRequired(bool value) { _store.change(Key::ipsRebootRequired, value); }
bool PolicySettings::isRebootRequested() const { return _store.flag(Key::rebootRequested); }
void PolicySettings::setRebootRequested(bool value) { _store.change(Key::rebootRequested, value); }
STRING PolicySettings::getRebootSource() const { return _store.text(Key::rebootSource); }
void PolicySettings::setRebootSource(const STRING& value) { _store.change(Key::rebootSource, value); }
bool PolicySettings::isFIMRebootRequired() const { return _store.flag(Key::fimRebootRequired); }
void PolicySettings::setFIMRebootRequired(bool value) { _store.change(Key::fimRebootRequired, value); }
bool PolicySettings::isFIMRebootRequested() const { return _store.flag(Key::fimRebootRequested); }
void PolicySettings::setFIMRebootRequested(bool value) { _store.change(Key::fimRebootRequested, value); }
bool PolicySettings::isFIMEnabled() const { return _store.flag(Key::fimEnabled); }
void PolicySettings::setFIMEnabled(bool value) { _store.change(Key::fimEnabled, value); }
int32_t PolicySettings::getIPSImportFileMaxLines() const { return _store.number(Key::ipsImportFileMaxLines); }
void PolicySettings::setIPSImportFileMaxLines(int32_t value) { _store.change(Key::ipsImportFileMaxLines, int64_t{value}); }
int32_t PolicySettings::getOverrideTimeout() const { return _store.number(Key::overrideTimeout); }
void PolicySettings::setOverrideTimeout(int32_t value) { _store.change(Key::overrideTimeout, int64_t{value}); }
// [IDS]
STRING PolicySettings::getIDSPolicyInitialGroup() const { return _store.text(Key::idsPolicyInitialGroup); }
void PolicySettings::setIDSPolicyInitialGroup(const STRING& value) { _store.change(Key::idsPolicyInitialGroup, value); }
STRING PolicySettings::getIDSConfigInitialGroup() const { return _store.text(Key::idsConfigInitialGroup); }
void PolicySettings::setIDSConfigInitialGroup(const STRING& value) { _store.change(Key::idsConfigInitialGroup, value); }
STRING PolicySettings::getIDSPlusFileName() const { return _store.text(Key::idsPlusPolicyFile); }
void PolicySettings::setIDSPlusFileName(const STRING& value) { _store.change(Key::idsPlusPolicyFile, value); }
int32_t PolicySettings::getIDSSignalTimeout() const { return _store.number(Key::idsSignalTimeout); }
void PolicySettings::setIDSSignalTimeout(int32_t value) { _store.change(Key::idsSignalTimeout, int64_t{value}); }

// Memory only
bool PolicySettings::getRetranslateIDSNow() const { return _retranslateIdsNow; }
void PolicySettings::setRetranslateIDSNow(bool value) { _retranslateIdsNow = value; }
bool PolicySettings::isRetranslationActive() const { return _retranslationActive; }
void PolicySettings::setRetranslationActive(bool value) { _retranslationActive = value; }
int PolicySettings::getIPSServiceStatus() const { return _ipsServiceStatus; }
void PolicySettings::setIPSServiceStatus(int value) { _ipsServiceStatus = value; }
bool PolicySettings::isIPSEnforced() const { return _ipsEnforced; }
void PolicySettings::setIPSEnforced(bool value) { _ipsEnforced = value; }
int64_t PolicySettings::getPolicyEffectiveDate() const { return _effectiveDate; }
void PolicySettings::setPolicyEffectiveDate(int64_t value) { _effectiveDate = value; }

// clang-format on

}  // namespace korvane
