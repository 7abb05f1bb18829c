// The IDS component as the agent reaches it: through files in its folder, InstallRoot/IDS.
//
// "ids.properties" is the component's own settings file; the agent only reads it. What the agent
// hands over is in "policy.request" and "config.request", the component's answer in "policy.result"
// and "config.result"; docs/file-formats.md has their lines. An apply operation replaces the
// request file and waits until the answer with the request's number is there, at most the settings'
// ids.signal.timeout. When none comes, the result that is read back is a failure of this side, with
// a text that says so.
//
// Lifetime: owned by the composition root, which hands it to AgentConfig::setHIDSInterface.
// Threads: any; an apply operation blocks its caller alone, and a stop of the agent ends it
// at once.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "agent/thread/locks.h"
#include "agent/thread/stop_token.h"
#include "config/hids_interface.h"
#include "platform/fwd.h"

namespace korvane {

class HidsComponent : public HidsInterface {
 public:
  // What the component reaches its files and the time through, and what ends its waits;
  // they outlive it.
  struct Surroundings {
    platform::Files& files;
    platform::Clock& clock;
    StopToken& stop;
  };
  // directory: the component's folder. timeoutSeconds: asked at every apply operation.
  HidsComponent(const Surroundings& surroundings, std::string directory,
                std::function<int32_t()> timeoutSeconds);

  bool present() override;
  bool reload() override;
  bool setting(const STRING& name, STRING& value) override;
  PropertyList settings() override;
  PropertyList logRules() override;
  bool applyPolicy(const STRING& policyFile) override;
  bool applyConfiguration(const PropertyList& settings, const PropertyList& logRules) override;
  bool readResults(PropertyList& out) override;

  // Result codes of this side; the component's own are its affair.
  static constexpr int kNoAnswer = 1001;
  static constexpr int kStopped = 1002;

 private:
  // What tells one state of the settings file from another.
  struct Stamp {
    uint64_t size;
    int64_t modifiedNs;
    uint64_t identity;
    bool same(const Stamp& other) const;
    bool settled(int64_t readAtMs) const;
  };

  // Hands over `pairs` in "<kind>.request" and waits for "<kind>.result". prefix: "IDS.Policy".
  [[nodiscard]] bool exchange(const std::string& kind, const char* prefix, PropertyList pairs);
  [[nodiscard]] bool awaitAnswer(const std::string& kind, const STRING& requestId,
                                 PropertyList& answer, int& failure);
  void readOnce();
  PropertyList known();
  std::string path(const std::string& name) const;

  platform::Files& _files;
  platform::Clock& _clock;
  StopToken& _stop;
  const std::string _directory;
  const std::function<int32_t()> _timeoutSeconds;
  Win32Mutex _lock;
  bool _read GUARDED_BY(_lock) = false;
  std::string _bytes GUARDED_BY(_lock);  // of the settings file
  PropertyList _properties GUARDED_BY(_lock);
  PropertyList _results GUARDED_BY(_lock);
  std::optional<Stamp> _stamp GUARDED_BY(_lock);  // of the settings that were read last
  int64_t _readAtMs GUARDED_BY(_lock) = 0;        // monotonic
  uint64_t _requests GUARDED_BY(_lock) = 0;
};

}  // namespace korvane
