// The policy: which one is in force and what state it is in, prevention and the reboots that it
// needs, retranslation, the policy of the IDS component. Threads, writing and errors: as AgentConfig
// has them.
#pragma once

#include <atomic>
#include <cstdint>

#include "agent/thread/locks.h"
#include "platform/fwd.h"
#include "util/string.h"
#include "util/thread_annotations.h"

namespace korvane {

class SettingsStore;

class PolicySettings {
 public:
  PolicySettings(SettingsStore& store, platform::Registry& registry)
      : _store(store), _registry(registry) {}

  // [System]: who must have signed what is installed
  STRING getSigningKeys() const;
  uint32_t getSigningMinimum() const;

  // [AutoRetrans]
  bool autoRetransEnabled() const;
  void setAutoRetransEnabled(bool value);
  uint32_t getAutoRetransInterval() const;
  void setAutoRetransInterval(uint32_t seconds);
  bool getRetranslateNow() const;
  void setRetranslateNow(bool value);
  bool getRetranslateIDSNow() const;  // memory only
  void setRetranslateIDSNow(bool value);
  bool isRetranslationActive() const;  // memory only
  void setRetranslationActive(bool value);

  // [Driver]: policy and prevention
  STRING getPlusPolicyFile() const;
  void setPlusPolicyFile(const STRING& value);
  STRING getPlusVersion() const;
  void setPlusVersion(const STRING& value);
  STRING getPlusID() const;
  void setPlusID(const STRING& value);
  // Both of one policy, in one write.
  void setPolicyIdentity(const STRING& id, const STRING& version);
  STRING getPolicyID() const;
  STRING getPlusDBPath() const;
  void setPlusDBPath(const STRING& value);
  bool useBuiltInPolicy() const;
  void setUseBuiltInPolicy(bool value);
  // True when the request to use the built-in policy differs from what the driver was last told.
  bool useBuiltInPolicyChanged() const;
  void updatedDriverForBuiltIn();
  bool isIPSEnabled() const;
  void setIPSEnabled(bool value);
  bool isFIMEnabled() const;
  void setFIMEnabled(bool value);
  int32_t getIPSImportFileMaxLines() const;
  void setIPSImportFileMaxLines(int32_t value);
  int32_t getOverrideTimeout() const;
  void setOverrideTimeout(int32_t value);
  int getIPSServiceStatus() const;  // memory only; 0 at start
  void setIPSServiceStatus(int status);
  bool isIPSEnforced() const;  // memory only
  void setIPSEnforced(bool value);
  int64_t getPolicyEffectiveDate() const;  // memory only
  void setPolicyEffectiveDate(int64_t wallMs);

  // Reboot state
  bool isIPSRebootDone() const;
  bool isIPSRebootRequired() const;
  void setIPSRebootRequired(bool value);
  bool isRebootRequested() const;
  void setRebootRequested(bool value);
  STRING getRebootSource() const;
  void setRebootSource(const STRING& value);
  bool isFIMRebootDone() const;
  bool isFIMRebootRequired() const;
  void setFIMRebootRequired(bool value);
  bool isFIMRebootRequested() const;
  void setFIMRebootRequested(bool value);
  // Asks the registry whether no reboot of the driver is outstanding; an absent value means none
  // is.
  bool isSystemRebootDone() const;
  // Takes the registry's answer into the settings; a reboot that was outstanding and is not any
  // more ends the requests of the configuration tool too.
  void updateRebootRequiredFlag();

  // Policy state and error
  static constexpr int kBuiltInPolicyState = -100;  // the driver is on its built-in policy
  void setPolicyState(int code, const STRING& text);
  // A policy is in force: there is no state of the built-in policy any more, and none
  // instead of it.
  void leaveBuiltInState();
  int getPolicyStateCode() const;
  STRING getPolicyStateStr() const;
  bool hasPolicyStateChanged() const;      // a state was set since the mark was cleared
  bool hasRealPolicyStateChanged() const;  // and it differs from the one before
  void setPolicyStateChanged(bool changed);
  void setPolicyError(int code, const STRING& text);
  int getPolicyErrorCode() const;
  STRING getPolicyErrorStr() const;
  bool hasPolicyErrorChanged() const;  // differs from the one that stood when the mark was cleared
  void setPolicyErrorChanged(bool changed);

  // [IDS]
  STRING getIDSPolicyInitialGroup() const;
  void setIDSPolicyInitialGroup(const STRING& value);
  STRING getIDSConfigInitialGroup() const;
  void setIDSConfigInitialGroup(const STRING& value);
  STRING getIDSPlusFileName() const;
  void setIDSPlusFileName(const STRING& value);
  int32_t getIDSSignalTimeout() const;
  void setIDSSignalTimeout(int32_t seconds);

 private:
  SettingsStore& _store;
  platform::Registry& _registry;  // the driver's

  // Not in the file. The lock is taken before the store's.
  mutable Win32Mutex _lock;
  int _state GUARDED_BY(_lock) = 0;
  STRING _stateText GUARDED_BY(_lock);
  bool _stateChanged GUARDED_BY(_lock) = false;
  bool _realStateChanged GUARDED_BY(_lock) = false;
  STRING _errorText GUARDED_BY(_lock);  // as it was set, with the blanks at its ends
  int _reportedError GUARDED_BY(_lock) = 0;
  STRING _reportedErrorText GUARDED_BY(_lock);
  bool _errorChangeForced GUARDED_BY(_lock) = false;
  std::atomic<bool> _acknowledgedBuiltIn{false};
  std::atomic<bool> _retranslateIdsNow{false};
  std::atomic<bool> _retranslationActive{false};
  std::atomic<int> _ipsServiceStatus{0};
  std::atomic<bool> _ipsEnforced{false};
  std::atomic<int64_t> _effectiveDate{0};
};

}  // namespace korvane
