// What the agent requests from the IDS component on the same machine.
//
// AgentConfig::getHIDSInterface() hands out the one of the run, or null when there is no IDS
// component; the composition root makes and owns it. Any thread may call any operation. Nothing
// throws: a failure is the bool result, with a trace line that names the file.
//
//   PropertyList results;
//   if (ids->applyPolicy(resultFile) && ids->readResults(results)) ...
#pragma once

#include "util/property_list.h"

namespace korvane {

class HidsInterface {
 public:
  virtual ~HidsInterface() = default;

  // True when the IDS component is installed: its settings file can be read.
  virtual bool present() = 0;
  // Reads the component's settings again; false when they cannot be read (the old ones stay).
  [[nodiscard]] virtual bool reload() = 0;
  // One of the component's settings, "ids.service.eventfile.name" for example; false when it is
  // missing.
  [[nodiscard]] virtual bool setting(const STRING& name, STRING& value) = 0;
  // All of them, in the order of the component's file, the log rules left out.
  virtual PropertyList settings() = 0;
  // The log rules in force: pairs whose names begin with "Log.".
  virtual PropertyList logRules() = 0;

  // Hands a translated policy file over to the component. What came of it is read with
  // readResults().
  [[nodiscard]] virtual bool applyPolicy(const STRING& policyFile) = 0;
  // Hands settings and log rules from the server over to the component.
  [[nodiscard]] virtual bool applyConfiguration(const PropertyList& settings,
                                                const PropertyList& logRules) = 0;
  // The result of the last apply operation as pairs ("IDS.Policy.ResultCode",
  // "IDS.Policy.ResultMessage", "IDS.Config.ResultCode", "IDS.Config.ResultMessage"); false when
  // there is none that can be read.
  [[nodiscard]] virtual bool readResults(PropertyList& out) = 0;
};

}  // namespace korvane
