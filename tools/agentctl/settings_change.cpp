#include "agentctl/settings_change.h"

#include <algorithm>
#include <cerrno>

#include "agentctl/failure.h"
#include "agentctl/nearest.h"
#include "agentctl/output.h"
#include "agentctl/value_check.h"
#include "config/agent_settings.h"
#include "config/ini_files.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "util/ignore_result.h"

namespace korvane::agentctl {
namespace {

constexpr char kTag[] = "agentctl";
constexpr char kNothingChanged[] = "Nothing was changed.";

bool hasControls(const std::string& value) {
  return std::any_of(value.begin(), value.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x20; });
}

}  // namespace

SettingsChange::SettingsChange(Context& context, bool force)
    : _context(context),
      _files(context.iniFiles()),
      _force(force),
      _view(SettingsView::ofInstallation(_files)) {
  if (!_view.fault().empty())
    note(_view.fault() + "; the values of " + _view.source() + " are kept beside the changed ones");
}

void SettingsChange::checkKey(const std::string& key) const {
  if (!isKeyName(STRING(key)))
    throw Failure(ExitStatus::failed, "\"" + key + "\" cannot be a key of agent.ini",
                  kNothingChanged);
  if (_view.find(STRING(key)) || _force) return;
  const std::string near = nearest(key, keyNames());
  throw Failure(ExitStatus::failed, "unknown key " + key,
                std::string(kNothingChanged) + (near.empty() ? "" : " Did you mean " + near + "?") +
                    " With --force it goes into [Other].");
}

void SettingsChange::add(const std::string& pair) {
  const size_t equals = pair.find('=');
  if (equals == std::string::npos)
    throw Failure(ExitStatus::usage, "\"" + pair + "\" is not KEY=VALUE", kNothingChanged);
  const std::string key = pair.substr(0, equals);
  const std::string value = pair.substr(equals + 1);
  checkKey(key);
  if (std::any_of(_values.begin(), _values.end(),
                  [&](const Value& known) { return known.key == key; }))
    throw Failure(ExitStatus::usage, key + " is given twice", kNothingChanged);
  if (hasControls(value))
    throw Failure(ExitStatus::failed,
                  "the value of " + key + " holds a line break or another control character",
                  kNothingChanged);
  if (const SettingRow* row = findRow(STRING(key))) {
    const ValueFault fault = checkValue(*row, STRING(value));
    if (fault.refused) throw Failure(ExitStatus::failed, fault.text, kNothingChanged);
    if (!fault.text.empty()) note(fault.text);
  }
  const STRING* known = _view.find(STRING(key));
  const std::string before = known ? known->toUtf8() : "";
  if (!_view.set(STRING(key), STRING(value)))
    throw Failure(ExitStatus::failed, "the value of " + key + " is too long for agent.ini",
                  kNothingChanged);
  _values.push_back({key, before, _view.find(STRING(key))->toUtf8()});
}

// So that an ordinary user is told at once, and a lock file in use is told apart from a
// missing permission.
void SettingsChange::checkMayWrite() const {
  platform::Files& files = _context.system().files;
  const std::string directory = _context.installDirectory();
  const std::string probe =
      platform::joinPath(files, {directory, "agentctl.probe-" + files.freshName()});
  std::unique_ptr<platform::File> file;
  const int error = files.open(probe, platform::OpenMode::createNew, file);
  file.reset();
  if (error != 0)
    throw Failure(error == EACCES || error == EPERM ? ExitStatus::notPermitted : ExitStatus::failed,
                  "nothing can be written to " + directory + ", error " + std::to_string(error),
                  "Run this as the agent's account or as administrator.");
  // Empty, should it stay.
  ignoreResult(files.remove(probe));
  int locked = 0;
  if (_files.lock(kTag, locked)) return;
  if (locked == ELOOP)
    throw Failure(ExitStatus::failed,
                  "the lock file " + _files.lockFile() + " is a link, which is not followed",
                  std::string(kNothingChanged) + " Find out who made it, and remove it.");
  throw Failure(ExitStatus::failed,
                "another program has kept " + _files.agentIni() + " locked for ten seconds",
                std::string(kNothingChanged) + " Try again when it is done.");
}

void SettingsChange::write() {
  checkMayWrite();
  const std::unique_ptr<AgentSettings> settings = _context.openSettings();
  SettingsFile& file = settings->file;
  file.setWhoIsRunning(SettingsFile::RUNNING_CONFIG_TOOL);
  const SettingsFile::ChangeGroup group(file);
  // The values have been checked.
  for (const Value& value : _values) ignoreResult(file.setValue(value.key, value.after));
  if (!file.updateIniFile())
    throw Failure(
        ExitStatus::failed, _files.agentIni() + " could not be written",
        "Check whether the disk is full or another program holds the file, then try again.");
}

}  // namespace korvane::agentctl
