#include "discovery/app_data_requests.h"

#include "agent/thread/exceptions.h"
#include "config/settings_file.h"
#include "config/update_settings.h"
#include "platform/threading.h"
#include "util/ignore_result.h"

namespace korvane {

platform::Event& Waker::event() {
  platform::Event* made = _event.get(
      [](platform::Threading& threading) { return threading.createEvent(false, false); });
  if (!made) throw ThreadException("Waker::event()", 8);
  return *made;
}

void Waker::wake() {
  event().set();
}

bool Waker::wait(StopToken& stop, uint32_t milliseconds) {
  platform::Event& waited = event();
  const StopCallback withTheStop(stop, [&waited] { waited.set(); });
  if (!stop.requested()) waited.wait(milliseconds);
  return stop.requested();
}

AppDataRequests::Asked AppDataRequests::ask(const AppDataSettings& settings,
                                            const STRING& identifier, bool remember) {
  if (identifier.length() > kMaxIdentifierUnits) return Asked::passedOver;
  UpdateSettings& values = settings.values;
  bool busy = false;
  {
    const SettingsFile::ChangeGroup group(settings.file);
    const Synchronized hold(_lock);
    busy = values.isAppDataRequested();
    if (busy && values.getAppDataRequestID() == identifier) return Asked::same;
    if (busy && !remember) return Asked::passedOver;
    if (busy) {
      values.setAppDataRequestNext(identifier);
    } else {
      values.setAppDataRequested(true);
      values.setAppDataRequestID(identifier);
    }
  }
  // What cannot be written now is written by one of the next loads.
  ignoreResult(settings.file.UpdateAllIni());
  _collector.wake();
  return busy ? Asked::remembered : Asked::begun;
}

bool AppDataRequests::current(const AppDataSettings& settings, STRING& identifier) {
  UpdateSettings& values = settings.values;
  const SettingsFile::ChangeGroup group(settings.file);
  const Synchronized hold(_lock);
  // A next one without one before it: asked for while the one before it was ended.
  if (!values.isAppDataRequested() && !values.getAppDataRequestNext().empty()) {
    values.setAppDataRequested(true);
    values.setAppDataRequestID(values.getAppDataRequestNext());
    values.setAppDataRequestNext({});
  }
  identifier = values.getAppDataRequestID();
  // Nobody could be answered.
  if (identifier.empty()) values.setAppDataRequested(false);
  return values.isAppDataRequested();
}

bool AppDataRequests::end(const AppDataSettings& settings, const STRING& identifier,
                          const Checksums* delivered) {
  UpdateSettings& values = settings.values;
  {
    const SettingsFile::ChangeGroup group(settings.file);
    const Synchronized hold(_lock);
    if (delivered) {
      values.setApplicationsChecksum(STRING(delivered->applications));
      values.setFilesChecksum(STRING(delivered->files));
    }
    if (values.isAppDataRequested() && values.getAppDataRequestID() == identifier) {
      const STRING next = values.getAppDataRequestNext();
      values.setAppDataRequestNext({});
      values.setAppDataRequestID(next);
      values.setAppDataRequested(!next.empty());
    }
  }
  _stage = Stage::none;
  return settings.file.UpdateAllIni();
}

AppDataRequests::Stage AppDataRequests::stage(const AppDataSettings& settings) const {
  if (!settings.values.isAppDataRequested()) return Stage::none;
  const Stage stage = _stage;
  return stage == Stage::none ? Stage::waiting : stage;
}

}  // namespace korvane
