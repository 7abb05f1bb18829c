#include "discovery/app_data_worker.h"

#include <cerrno>
#include <memory>
#include <utility>

#include "archive/zip_file.h"
#include "config/agent_config.h"
#include "config/ini_text.h"
#include "config/install_root.h"
#include "config/settings_file.h"
#include "config/update_settings.h"
#include "discovery/app_data_sender.h"
#include "eventlog/event_log.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "util/ignore_result.h"
#include "util/sha256.h"

namespace korvane {
namespace {

using Outcome = DeliveryState::Outcome;
using Stage = AppDataRequests::Stage;

constexpr char kWorkerSource[] = "AppDataProcessing";
constexpr char kInventoryEntry[] = "inventory.xml";
constexpr char kShortcutsEntry[] = "shortcuts.txt";
constexpr size_t kDigestedBytes = 64 * 1024;

STRING countText(uint64_t value) {
  return STRING::fromInt(static_cast<int64_t>(value));
}

STRING placeOf(const STRING& path) {
  return path.empty() ? path : STRING(placeOfSetting(path.toUtf8()));
}

STRING errorLine(const STRING& reason) {
  return lineValue(reason).substr(0, kMaxDeliveryErrorUnits);
}

AppDataRequests::Checksums checksumsOf(const DeliveryState& state) {
  return {state.applicationsChecksum, state.filesChecksum};
}

// The outcome is the server's, or the program's, from now on. Those of an error stay as they were.
bool endRequest(const AppDataSettings& settings, AppDataRequests& requests,
                const DeliveryState& state, bool delivered) {
  const AppDataRequests::Checksums checksums = checksumsOf(state);
  const bool notes = delivered && state.outcome != Outcome::error;
  return requests.end(settings, state.request, notes ? &checksums : nullptr);
}

}  // namespace

AppDataWorker::AppDataWorker(const AppDataParts& parts, StopToken& stop)
    : _parts(parts),
      _stop(stop),
      _folder(parts.files, installDirectory()),
      _schedule(parts.settings, parts.requests, parts.clock) {}

AppDataWorker::~AppDataWorker() = default;

void AppDataWorker::run(bool keepsSchedule) {
  wakeWithSettings(_parts.settings, _parts.requests);
  recover();
  do {
    tellReadiness();
    if (keepsSchedule) _schedule.askWhenDue();
    serve();
    tellReadiness();
  } while (!_parts.requests.collector().wait(
      _stop, keepsSchedule ? _schedule.remainingMs() : platform::kInfinite));
  UpdateSettings& values = _parts.settings.values;
  values.setLocalAppDiscoveryOn(false);
  values.setCloudAppDiscoveryOn(false);
}

bool AppDataWorker::hasDefinition() const {
  const UpdateSettings& values = _parts.settings.values;
  return !values.getAppDataConfigFile().empty() || !values.getAppDataConfigV2File().empty();
}

// APP_DISCOVERY of the agent's state.
void AppDataWorker::tellReadiness() {
  UpdateSettings& values = _parts.settings.values;
  const bool ready = _lastWorked && hasDefinition();
  if (_parts.cloud)
    values.setCloudAppDiscoveryOn(ready);
  else
    values.setLocalAppDiscoveryOn(ready);
}

void AppDataWorker::recover() {
  DeliveryState state;
  int error = 0;
  {
    const Synchronized hold(_parts.requests.files());
    _folder.removeUnfinished();
    error = _folder.load(state);
  }
  if (error != 0 && error != ENOENT)
    eventlog::event(EventId::applicationDataDamaged, kWorkerSource, {error});
  STRING request;
  const bool asked = _parts.requests.current(_parts.settings, request);
  if (error == 0 && asked && request == state.request) return;
  if (error == 0 && !_parts.server && !state.delivered) return;
  // Of a release that was cut off.
  if (error == 0 && !_parts.server)
    ignoreResult(endRequest(_parts.settings, _parts.requests, state, true));
  removeDelivery();
}

void AppDataWorker::removeDelivery() {
  const Synchronized hold(_parts.requests.files());
  _folder.remove();
}

void AppDataWorker::serve() {
  STRING request;
  while (!stopping() && _parts.requests.current(_parts.settings, request))
    if (!serveOne(request)) return;
}

// False when a stop came.
bool AppDataWorker::serveOne(const STRING& request) {
  DeliveryState state;
  if (!loaded(request, state)) {
    _parts.requests.setStage(Stage::collecting);
    if (!collect(request, state)) return false;
  }
  // For a program on the machine, which takes it when it likes.
  if (!_parts.server) {
    eventlog::event(EventId::applicationDataAnswered, kWorkerSource,
                    {request, nameOf(state.outcome)});
    ignoreResult(endRequest(_parts.settings, _parts.requests, state, state.delivered));
    return true;
  }
  _parts.requests.setStage(Stage::sending);
  return state.delivered ? (settle(state, true), true) : deliver(state);
}

bool AppDataWorker::loaded(const STRING& request, DeliveryState& state) {
  const Synchronized hold(_parts.requests.files());
  return _folder.load(state) == 0 && state.request == request;
}

bool AppDataWorker::deliver(DeliveryState& state) {
  AppDataSender sender({_parts.files, _stop, _parts.settings.values, *_parts.server, _folder});
  AppDataSender::Result result = sender.send(state);
  if (result == AppDataSender::Result::unreadable) {
    fail("the archive cannot be read", state);
    keep(state);
    result = sender.send(state);
  }
  if (result == AppDataSender::Result::stopped) return false;
  settle(state, result == AppDataSender::Result::delivered, sender.reason());
  return true;
}

// The request ends first: whoever finds it still there after a crash finds the state too.
void AppDataWorker::settle(const DeliveryState& state, bool delivered, const STRING& reason) {
  if (delivered)
    eventlog::event(EventId::applicationDataAnswered, kWorkerSource,
                    {state.request, nameOf(state.outcome)});
  else
    eventlog::event(EventId::applicationDataGivenUp, kWorkerSource, {state.request, reason});
  if (endRequest(_parts.settings, _parts.requests, state, delivered)) removeDelivery();
}

bool AppDataWorker::collect(const STRING& request, DeliveryState& state) {
  state = {};
  state.request = request;
  const UpdateSettings& values = _parts.settings.values;
  _schedule.noteInventory();
  const InventoryFiles wanted{placeOf(values.getAppDataConfigFile()),
                              placeOf(values.getAppDataConfigV2File()), STRING(_folder.inventory()),
                              STRING(_folder.shortcuts())};
  InventoryResult result;
  const int made = _folder.make();
  if (!hasDefinition()) {
    result.error = "there is no discovery definition: appdata.config.file is empty";
  } else if (made != 0) {
    result.error = "the folder appdata cannot be made: error " + std::to_string(made);
  } else {
    result = _parts.source.collect(_stop, wanted);
  }
  if (result.stopped || stopping()) return _folder.removeCollected(), false;
  _lastWorked = result.written;
  describe(result, state);
  const int packed = state.outcome == Outcome::data ? pack(state) : 0;
  if (packed == ECANCELED) return _folder.removeCollected(), false;
  if (packed != 0) fail("the archive cannot be written: error " + std::to_string(packed), state);
  keep(state);
  _folder.removeCollected();
  if (state.outcome == Outcome::error)
    eventlog::event(EventId::applicationDataNotCollected, kWorkerSource, {request, state.error});
  else
    eventlog::event(
        EventId::applicationDataCollected, kWorkerSource,
        {request, countText(state.rows), countText(state.skipped), countText(state.size)});
  return true;
}

void AppDataWorker::describe(const InventoryResult& result, DeliveryState& state) {
  state.rows = result.rows;
  state.skipped = result.skipped;
  state.applicationsChecksum = result.applicationsChecksum;
  state.filesChecksum = result.filesChecksum;
  if (!result.written) return fail(result.error.toUtf8(), state);
  state.complete = result.complete;
  state.error = errorLine(result.error);
  const UpdateSettings& values = _parts.settings.values;
  const STRING applications = values.getApplicationsChecksum();
  const STRING files = values.getFilesChecksum();
  // Without any there is nothing to compare.
  const bool same = result.complete && (!applications.empty() || !files.empty()) &&
                    applications == STRING(state.applicationsChecksum) &&
                    files == STRING(state.filesChecksum);
  state.outcome = same ? Outcome::unchanged : Outcome::data;
}

void AppDataWorker::fail(const std::string& reason, DeliveryState& state) {
  state.outcome = Outcome::error;
  state.error = errorLine(reason);
  if (state.error.empty()) state.error = "the inventory could not be collected";
  state.complete = false;
  state.size = state.sent = 0;
  state.sha256.clear();
}

int AppDataWorker::pack(DeliveryState& state) {
  archive::ZipFile zip(_parts.files, _folder.unfinishedArchive(), [this] { return stopping(); });
  int error = zip.add(kInventoryEntry, _folder.inventory());
  if (error == 0 && platform::fileExists(_parts.files, _folder.shortcuts()))
    error = zip.add(kShortcutsEntry, _folder.shortcuts());
  if (error == 0) error = zip.finish();
  return error == 0 ? measureArchive(state) : error;
}

int AppDataWorker::measureArchive(DeliveryState& state) const {
  std::unique_ptr<platform::File> file;
  if (const int error =
          _parts.files.open(_folder.unfinishedArchive(), platform::OpenMode::read, file))
    return error;
  Sha256 digest;
  std::string piece(kDigestedBytes, '\0');
  for (state.size = 0;;) {
    if (stopping()) return ECANCELED;
    size_t got = 0;
    if (const int error = file->read(piece.data(), piece.size(), got)) return error;
    if (got == 0) break;
    state.size += got;
    digest.add({piece.data(), got});
  }
  state.sha256 = digest.text();
  return state.size > 0 ? 0 : EIO;
}

// Without it on disk the request is answered all the same, unless its data cannot have its name.
void AppDataWorker::keep(const DeliveryState& state) {
  const Synchronized hold(_parts.requests.files());
  if (const int error = _folder.install(state))
    eventlog::event(EventId::applicationDataNotNoted, kWorkerSource, {state.request, error});
}

void wakeWithSettings(const AppDataSettings& settings, AppDataRequests& requests) {
  // What the threads look at, as it was at the last change.
  struct Seen {
    uint32_t interval;
    STRING definition, definitionV2, request;
    bool requested;
    bool operator==(const Seen&) const = default;
  };
  const auto look = [&values = settings.values] {
    return Seen{values.getAppDataScheduleInterval(), values.getAppDataConfigFile(),
                values.getAppDataConfigV2File(), values.getAppDataRequestID(),
                values.isAppDataRequested()};
  };
  // Changes come on any thread, one at a time for each.
  struct Watched {
    Win32Mutex lock;
    Seen seen;
  };
  const auto watched = std::make_shared<Watched>();
  watched->seen = look();
  settings.file.registerSubscriber(AgentConfig::SETTINGS_CHANGED,
                                   [look, watched, &requests](void*) {
                                     const Seen now = look();
                                     {
                                       const Synchronized hold(watched->lock);
                                       if (watched->seen == now) return;
                                       watched->seen = now;
                                     }
                                     requests.collector().wake();
                                     requests.schedule().wake();
                                   });
}

bool releaseDelivery(platform::Files& files, const AppDataSettings& settings,
                     AppDataRequests& requests) {
  DeliveryFolder folder(files, installDirectory());
  DeliveryState state;
  {
    const Synchronized hold(requests.files());
    if (folder.load(state) != 0) return false;
    state.delivered = true;
    // Without it a crash now leaves the result to be fetched once more.
    ignoreResult(folder.save(state));
  }
  if (!endRequest(settings, requests, state, true)) return true;
  const Synchronized hold(requests.files());
  DeliveryState now;
  if (folder.load(now) == 0 && now == state) folder.remove();
  return true;
}

}  // namespace korvane
