#include "discovery/inventory_schedule.h"

#include <algorithm>
#include <charconv>
#include <string>

#include "config/settings_file.h"
#include "config/update_settings.h"
#include "platform/clock.h"
#include "platform/threading.h"
#include "util/dates.h"

namespace korvane {
namespace {

int64_t timeOf(const std::string& text) {
  int64_t time = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), time);
  return error == std::errc() && end == text.data() + text.size() ? time : 0;
}

}  // namespace

STRING ownRequest(const char* prefix, int64_t wallMs) {
  std::string time = formatIso8601(wallMs);  // "2026-11-22T10:15:30.123Z"
  std::erase_if(time, [](char c) { return c == '-' || c == ':'; });
  return STRING(std::string(prefix) + "-" + time.substr(0, time.find('.')) + "Z");
}

int64_t InventorySchedule::remaining() const {
  const int64_t interval =
      int64_t{1000} * std::max(_settings.values.getAppDataScheduleInterval(), kLeastSeconds);
  const int64_t last = timeOf(_settings.values.getAppDataScheduleLast().toUtf8());
  const int64_t now = _clock.wallMs();
  return last <= 0 || last > now ? 0 : std::max<int64_t>(interval - (now - last), 0);
}

uint32_t InventorySchedule::remainingMs() const {
  if (_settings.values.getAppDataScheduleInterval() == 0) return platform::kInfinite;
  return static_cast<uint32_t>(std::min<int64_t>(remaining(), kLongestWaitMs));
}

void InventorySchedule::noteInventory() {
  if (_settings.values.getAppDataScheduleInterval() > 0)
    _settings.values.setAppDataScheduleLast(STRING::fromInt(_clock.wallMs()));
}

// While another request is served this one is left out; that is why the time is noted here, too.
void InventorySchedule::askWhenDue() {
  if (_settings.values.getAppDataScheduleInterval() == 0 || remaining() > 0) return;
  const SettingsFile::ChangeGroup group(_settings.file);
  noteInventory();
  _requests.ask(_settings, ownRequest("schedule", _clock.wallMs()), /*remember=*/false);
}

}  // namespace korvane
