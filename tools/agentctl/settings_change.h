// A change of agent.ini by the configuration tool: values are added, then all are written
// in one step or none is.
//
// Lifetime: one object per change. Threads: one. Errors: Failure, and nothing has been written
// then.
//
//   SettingsChange change(context, /*force=*/false);
//   change.add("polling.interval=60");
//   change.write();
#pragma once

#include <string>
#include <vector>

#include "agentctl/context.h"
#include "agentctl/settings_view.h"

namespace korvane::agentctl {

class SettingsChange {
 public:
  struct Value {
    std::string key;
    std::string before;
    std::string after;
  };

  // `force`: a key that the agent does not know is taken too.
  SettingsChange(Context& context, bool force);
  // A pair "key=value".
  void add(const std::string& pair);
  void write();
  const std::vector<Value>& values() const { return _values; }

 private:
  void checkKey(const std::string& key) const;
  void checkMayWrite() const;

  Context& _context;
  const IniFiles _files;
  const bool _force;
  SettingsView _view;
  std::vector<Value> _values;
};

}  // namespace korvane::agentctl
