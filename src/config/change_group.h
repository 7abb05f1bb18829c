// Makes the changes of one thread in its scope one write, done when the outermost group ends.
#pragma once

namespace korvane {

class SettingsStore;

class ChangeGroup {
 public:
  explicit ChangeGroup(SettingsStore& store);
  ~ChangeGroup();
  ChangeGroup(const ChangeGroup&) = delete;
  ChangeGroup& operator=(const ChangeGroup&) = delete;

 private:
  SettingsStore& _store;
};

}  // namespace korvane
