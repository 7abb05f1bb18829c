#include "ids/hids_component.h"

#include <algorithm>
#include <utility>

#include "config/ini_text.h"
#include "config/properties_file.h"
#include "eventlog/event_log.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/paths.h"

namespace korvane {
namespace {

constexpr char kTag[] = "HidsComponent";
constexpr uint32_t kLookMs = 250;
constexpr int64_t kNsPerMs = 1000000;
constexpr int64_t kSettleNs = 5000 * kNsPerMs;
// How long a settings file that looks the same is believed to be: where dates are coarse and
// identities are used again, another one may look like it.
constexpr int64_t kBelievedMs = 10000;
constexpr char kRulePrefix[] = "Log.";

PropertyList pick(const PropertyList& all, bool rules) {
  PropertyList picked;
  for (const Property& pair : all) {
    if (pair.first.startsWith(kRulePrefix) == rules) picked.push_back(pair);
  }
  return picked;
}

// A line holds no line break; one inside a text becomes a blank.
void appendLine(std::string& text, const Property& pair) {
  std::string line = pair.first.toUtf8() + "=" + pair.second.toUtf8();
  std::replace_if(
      line.begin(), line.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
  text += line + "\n";
}

STRING failureText(int code) {
  return code == HidsComponent::kStopped ? "The agent stopped before the IDS component answered."
                                         : "The IDS component did not answer in time.";
}

}  // namespace

HidsComponent::HidsComponent(const Surroundings& surroundings, std::string directory,
                             std::function<int32_t()> timeoutSeconds)
    : _files(surroundings.files),
      _clock(surroundings.clock),
      _stop(surroundings.stop),
      _directory(std::move(directory)),
      _timeoutSeconds(std::move(timeoutSeconds)) {}

std::string HidsComponent::path(const std::string& name) const {
  return platform::joinPath(_files, {_directory, name});
}

bool HidsComponent::present() {
  return !_directory.empty() && platform::fileExists(_files, path("ids.properties"));
}

// A file that was changed just before it was read may change again without looking different.
bool HidsComponent::Stamp::settled(int64_t readAtMs) const {
  return readAtMs * kNsPerMs - modifiedNs > kSettleNs;
}

bool HidsComponent::Stamp::same(const Stamp& other) const {
  return size == other.size && modifiedNs == other.modifiedNs && identity == other.identity;
}

bool HidsComponent::reload() {
  const std::string file = path("ids.properties");
  platform::FileInfo info;
  const bool there = _files.info(file, info) == 0;
  const Stamp stamp{info.size, info.modifiedNs, info.identity};
  const int64_t now = _clock.monotonicMs();
  {
    const Synchronized hold(_lock);
    if (there && _stamp && _stamp->same(stamp) && now - _readAtMs < kBelievedMs) return true;
  }
  std::string bytes;
  const int error = platform::readWholeFile(_files, file, kMaxIniBytes, bytes);
  if (error != 0) {
    eventlog::trace(kTag, "Cannot read the IDS settings %s: error %d", file, error);
    return false;
  }
  const Synchronized hold(_lock);
  if (!_read || bytes != _bytes) _properties = parseProperties(bytes);
  _bytes = std::move(bytes);
  _read = true;
  _readAtMs = now;
  _stamp.reset();
  if (there && stamp.settled(_clock.wallMs())) _stamp = stamp;
  return true;
}

void HidsComponent::readOnce() {
  {
    const Synchronized hold(_lock);
    if (_read) return;
  }
  reload();
}

PropertyList HidsComponent::known() {
  readOnce();
  const Synchronized hold(_lock);
  return _properties;
}

bool HidsComponent::setting(const STRING& name, STRING& value) {
  readOnce();
  const Synchronized hold(_lock);
  const STRING* found = findProperty(_properties, name);
  if (!found) return false;
  value = *found;
  return true;
}

PropertyList HidsComponent::settings() {
  return pick(known(), false);
}
PropertyList HidsComponent::logRules() {
  return pick(known(), true);
}

bool HidsComponent::applyPolicy(const STRING& policyFile) {
  return exchange("policy", "IDS.Policy", {{"policy.file", policyFile}});
}

bool HidsComponent::applyConfiguration(const PropertyList& settings, const PropertyList& logRules) {
  PropertyList pairs = settings;
  pairs.insert(pairs.end(), logRules.begin(), logRules.end());
  return exchange("config", "IDS.Config", std::move(pairs));
}

bool HidsComponent::exchange(const std::string& kind, const char* prefix, PropertyList pairs) {
  STRING requestId;
  {
    const Synchronized hold(_lock);
    _results.clear();
    requestId =
        STRING::fromInt(_clock.wallMs()) + "-" + STRING::fromInt(static_cast<int64_t>(++_requests));
  }
  std::string text;
  appendLine(text, {"request.id", requestId});
  for (const Property& pair : pairs) appendLine(text, pair);
  const std::string file = path(kind + ".request");
  const int error = platform::writeFileAtomically(_files, file, text);
  if (error != 0) {
    eventlog::trace(kTag, "Cannot hand over to the IDS component in %s: error %d", file, error);
    return false;
  }
  PropertyList answer;
  int failure = 0;
  const bool answered = awaitAnswer(kind, requestId, answer, failure);
  if (!answered) {
    eventlog::trace(kTag, "%s No answer to %s in %s", failureText(failure), requestId, file);
    answer = {{STRING(prefix) + ".ResultCode", STRING::fromInt(failure)},
              {STRING(prefix) + ".ResultMessage", failureText(failure)}};
  } else if (kind == "config") {
    reload();
  }
  const Synchronized hold(_lock);
  _results = std::move(answer);
  return true;
}

bool HidsComponent::awaitAnswer(const std::string& kind, const STRING& requestId,
                                PropertyList& answer, int& failure) {
  const int64_t end = _clock.monotonicMs() + int64_t{1000} * std::max(_timeoutSeconds(), 0);
  const std::string file = path(kind + ".result");
  for (;;) {
    PropertyList found;
    if (readPropertiesFile(_files, file, found) == 0 &&
        propertyValue(found, "request.id") == requestId) {
      std::erase_if(found, [](const Property& pair) { return pair.first == "request.id"; });
      answer = std::move(found);
      return true;
    }
    failure = kNoAnswer;
    if (_clock.monotonicMs() >= end) return false;
    failure = kStopped;
    if (_stop.sleepFor(kLookMs)) return false;
  }
}

bool HidsComponent::readResults(PropertyList& out) {
  const Synchronized hold(_lock);
  if (_results.empty()) return false;
  out = _results;
  return true;
}

}  // namespace korvane
