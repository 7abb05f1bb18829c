// Which settings are taken from elsewhere. The operator's own file may hold anything; what a management
// server or a program on a pipe sends is judged first:
//
// |                                              | server | cloud channel | local channel |
// |----------------------------------------------|--------|---------------|---------------|
// | a key that settings.local.only names         | no     | no            | no            |
// | a value with a fault (settingFault)          | no     | no            | no            |
// | a value with a doubt (settingDoubt)          | no     | no            | yes           |
// | a file or folder that is not below InstallRoot | no   | no            | yes           |
//
// An administrator of this machine is behind the local channel, and behind the cloud channel whoever
// tells its connector what to send.
//
// A value with the list as it was when the object was made, so that no pair of one configuration
// changes how the next one is judged. Any thread; judging looks at the file system.
#pragma once

#include <set>
#include <string>

#include "platform/fwd.h"
#include "util/string.h"

namespace korvane {

enum class SettingsSource { server, cloudChannel, localChannel };
// "server", "cloud channel", "local channel"
const char* nameOf(SettingsSource source);

struct SettingVerdict {
  std::string refusal;  // goes on behind the value: "is too long"; empty: taken
  bool forbidden =
      false;  // it is not the value that is wrong, but who sends it, or what it reaches
};

class IncomingSettings {
 public:
  struct Surroundings {
    platform::Files& files;
    std::string root;  // InstallRoot
    std::string own;   // the agent's folder in it, where relative paths begin
    STRING localOnly;  // keys, separated by commas; a list that is not empty names itself
    bool plainHttp;    // http is allowed
  };

  explicit IncomingSettings(const Surroundings& of);

  bool keptLocal(const STRING& key) const { return _localOnly.count(key) > 0; }
  SettingVerdict judge(SettingsSource from, const STRING& key, const STRING& value) const;

 private:
  bool staysBelow(std::string_view path) const;
  bool allStayBelow(std::string_view text) const;

  const Surroundings _of;
  std::set<STRING> _localOnly;
};

}  // namespace korvane
