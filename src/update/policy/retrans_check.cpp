#include "update/policy/retrans_check.h"

#include <cerrno>

#include "config/policy_settings.h"
#include "driver/driver.h"
#include "eventlog/event_log.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "translator/translator.h"

namespace korvane {
namespace {

constexpr char kLoadTag[] = "loadRetransItems";
constexpr char kCheckTag[] = "checkRetrans";

class TranslatedMachine final : public MachineState {
 public:
  using MachineState::MachineState;

 protected:
  bool pathExists(const std::string& path, bool& exists) override {
    if (!Translator::available()) return MachineState::pathExists(path, exists);
    exists = Translator::fileExists(path);
    return true;
  }

  bool addresses(std::vector<std::string>& out) override {
    if (!Translator::available()) return MachineState::addresses(out);
    std::vector<STRING> values;
    if (!Translator::getFunctionValues("LocalIPs", values)) return false;
    for (const STRING& value : values) out.push_back(value.toUtf8());
    return true;
  }
};

std::string shown(const RetransItem& item) {
  return item.present ? "'" + item.value + "'" : "nothing";
}

bool differs(const RetransItem& then, const RetransItem& now) {
  return then.present != now.present || (now.present && then.value != now.value);
}

void traceChange(const RetransItem& then, const RetransItem& now) {
  switch (then.kind) {
    case RetransItem::Kind::path:
      if (now.present)
        eventlog::trace(kCheckTag, "file/directory created %s", then.name);
      else
        eventlog::trace(kCheckTag, "file/directory deleted %s", then.name);
      break;
    case RetransItem::Kind::environment:
      eventlog::trace(kCheckTag, "environment variable changed from %s to %s: %s", shown(then),
                      shown(now), then.name);
      break;
    case RetransItem::Kind::registry:
      eventlog::trace(kCheckTag, "registry key value(s) changed from %s to %s: %s, value '%s'",
                      shown(then), shown(now), then.key, then.name);
      break;
    case RetransItem::Kind::addresses:
      eventlog::trace(kCheckTag, "LocalIPAddresses changed from %s to %s", shown(then), shown(now));
      break;
  }
}

bool changed(MachineState& machine, const RetransItem& then) {
  RetransItem now = then;
  if (!machine.read(now)) {
    eventlog::trace(kCheckTag, "Cannot tell the state of '%s'", then.key + " " + then.name);
    return false;
  }
  if (!differs(then, now)) return false;
  traceChange(then, now);
  return true;
}

}  // namespace

bool RetransCheck::loadRetransItems(const STRING& path) {
  const std::string file = path.toUtf8();
  std::string text;
  _items.clear();
  const int error = platform::readWholeFile(_sources.files, file, kMaxItemsBytes, text);
  if (error == ENOENT) {
    eventlog::trace(kLoadTag, "There are no translation items: %s", file);
    return false;
  }
  if (error != 0) {
    eventlog::event(EventId::translationItemsNotRead, kLoadTag, {file, error});
    return false;
  }
  ItemsProblem problem;
  if (parseRetransItems(text, _items, problem)) return true;
  eventlog::event(EventId::translationItemsDamaged, kLoadTag, {file, problem.line, problem.reason});
  return false;
}

bool RetransCheck::checkRetrans() {
  if (_driver.usingBuiltIn()) {
    eventlog::trace(kCheckTag,
                    "Bypassing retranslation check because built-in IPS Policy is in use");
    return false;
  }
  TranslatedMachine machine(_sources);
  bool any = false;
  for (const RetransItem& item : _items) any |= changed(machine, item);
  if (any) _settings.setRetranslateNow(true);
  return any;
}

}  // namespace korvane
