#include "ledger/loss_ledger.h"

#include <algorithm>
#include <cerrno>
#include <string_view>

#include "eventlog/event_log.h"
#include "platform/clock.h"
#include "platform/paths.h"

namespace korvane {
namespace {

constexpr char kLedgerSource[] = "LossLedger";
constexpr size_t kSlots = LossLedger::kFileBytes / LossLedger::kSlotBytes;

static_assert(LossLedger::kMaxEntries * (kLongestLogName + 400) < LossLedger::kSlotBytes,
              "the longest content must fit a slot");

bool sameLoss(const Loss& a, const Loss& b) {
  return a.stream == b.stream && a.log == b.log && a.cause == b.cause && a.counted == b.counted &&
         a.identity == b.identity && a.first.position == b.first.position &&
         a.last.position == b.last.position;
}

void addTo(LossSums& sums, const Loss& loss) {
  LossSum& sum = sums[static_cast<size_t>(loss.cause)];
  (loss.counted ? sum.lines : sum.uncounted) += loss.count;
}

bool reads(platform::File& file, size_t slot, std::string& bytes) {
  size_t got = 0;
  bytes.assign(LossLedger::kSlotBytes, '\0');
  if (file.seek(static_cast<int64_t>(slot * LossLedger::kSlotBytes)) != 0 ||
      file.read(bytes.data(), bytes.size(), got) != 0)
    return false;
  bytes.resize(got);
  return true;
}

// Its whole size at once, so that a full disk takes nothing from it later.
int giveItsSize(platform::File& file) {
  platform::FileInfo info;
  if (const int error = file.info(info)) return error;
  if (info.size >= LossLedger::kFileBytes) return 0;
  const std::string zeros(LossLedger::kFileBytes - static_cast<size_t>(info.size), '\0');
  int error = file.seek(static_cast<int64_t>(info.size));
  if (error == 0) error = file.write(zeros.data(), zeros.size());
  return error == 0 ? file.flush() : error;
}

}  // namespace

void LossLedger::open(const std::string& path) {
  const Synchronized held(_lock);
  _path = path;
  if (_path.empty()) return;
  const int error = openFile();
  if (error != 0) eventlog::event(EventId::ledgerNotWritten, kLedgerSource, {_path, error});
  _failureReported = error != 0;
  changed();
}

void LossLedger::close() {
  Synchronized hold(_lock);
  _file.reset();
}

void LossLedger::look(const std::string& path) {
  const Synchronized held(_lock);
  std::unique_ptr<platform::File> file;
  if (_files.open(path, platform::OpenMode::read, file) == 0) load(*file);
}

int LossLedger::openFile() {
  std::unique_ptr<platform::File> file;
  int error = _files.open(_path, platform::OpenMode::readWrite, file);
  if (error == ENOENT) error = _files.open(_path, platform::OpenMode::createNew, file);
  if (error == 0) error = giveItsSize(*file);
  if (error == 0) error = _files.flushDirectory(platform::directoryOf(_path));
  if (error != 0) return error;
  // What was entered before the file could be opened stays.
  if (!_loaded) load(*file);
  _file = std::move(file);
  return 0;
}

// The newer one of the slots that are whole. A file of zeros was made and not written yet.
void LossLedger::load(platform::File& file) {
  const char* wrong = nullptr;
  std::optional<LedgerContent> newest;
  for (size_t slot = 0; slot < kSlots; ++slot) {
    std::string bytes;
    LedgerContent content;
    if (!reads(file, slot, bytes)) {
      wrong = "it cannot be read";
      continue;
    }
    if (bytes.find_first_not_of('\0') == std::string::npos) continue;
    const char* const fault = parseLedger(bytes, content);
    if (fault)
      wrong = fault;
    else if (!newest || static_cast<int64_t>(content.generation - newest->generation) > 0)
      newest = std::move(content);
  }
  _loaded = true;
  if (wrong && !newest && !_path.empty())
    eventlog::event(EventId::ledgerUnusable, kLedgerSource, {_path, std::string(wrong)});
  if (!newest) return;
  newest->entries.insert(newest->entries.end(), _content.entries.begin(), _content.entries.end());
  _content = std::move(*newest);
}

bool LossLedger::save() {
  changed();
  mergeEntries(_content.entries, kMaxEntries);
  if (_path.empty()) return false;
  int error = _file ? 0 : openFile();
  if (error == 0) {
    ++_content.generation;
    std::string bytes = ledgerText(_content);
    bytes.resize(kSlotBytes, '\0');
    error = _file->seek(static_cast<int64_t>(_content.generation % kSlots * kSlotBytes));
    if (error == 0) error = _file->write(bytes.data(), bytes.size());
    if (error == 0) error = _file->flush();
    // The slot may be a torn one now; the next try takes it again and leaves the other alone.
    if (error != 0) --_content.generation;
  }
  if (error != 0 && !_failureReported)
    eventlog::event(EventId::ledgerNotWritten, kLedgerSource, {_path, error});
  _failureReported = error != 0;
  return error == 0;
}

bool LossLedger::record(const Loss& loss) {
  return record(std::span(&loss, 1));
}

bool LossLedger::record(std::span<const Loss> losses) {
  const Synchronized held(_lock);
  bool isNew = false;
  for (const Loss& loss : losses) isNew = enter(loss) || isNew;
  return isNew || _failureReported ? save() : !_path.empty();
}

bool LossLedger::enter(const Loss& loss) {
  LedgerEntry entry;
  static_cast<Loss&>(entry) = loss;
  entry.log = ledgerLogName(loss.log);
  for (LedgerEntry& known : _content.entries) {
    if (known.parts > 1 || known.number != 0 || !sameLoss(known, entry)) continue;
    return false;
  }
  _content.entries.push_back(std::move(entry));
  mergeEntries(_content.entries, kMaxEntries);
  return true;
}

void LossLedger::withdraw(const std::string& log, LossCause cause) {
  const Synchronized held(_lock);
  const std::string name = ledgerLogName(log);
  const auto gone = std::erase_if(_content.entries, [&](const LedgerEntry& entry) {
    return entry.log == name && entry.cause == cause && !entry.counted && entry.number == 0;
  });
  if (gone > 0) save();
}

uint64_t& LossLedger::numberOf(const std::string& stream) {
  const auto found = std::find_if(_content.streams.begin(), _content.streams.end(),
                                  [&](const LedgerStream& known) { return known.name == stream; });
  if (found != _content.streams.end()) return found->number;
  return _content.streams.emplace_back(LedgerStream{stream, 0}).number;
}

LossSums LossLedger::sumsOf(const std::string& stream) const {
  LossSums sums{};
  for (const LedgerEntry& entry : _content.entries)
    if (entry.stream == stream) addTo(sums, entry);
  return sums;
}

// Losses that the pointer has not come to are found again; the others stay. True when there were any.
bool LossLedger::takeBack(const std::string& stream, uint64_t beyond) {
  const auto taken = std::erase_if(_content.entries, [&](const LedgerEntry& entry) {
    return entry.stream == stream && entry.number > beyond;
  });
  for (LedgerEntry& entry : _content.entries)
    if (entry.stream == stream) entry.number = 0;
  return taken > 0;
}

// What the pointer knows to be lost and the file does not: its details were never written.
void LossLedger::addWhatIsMissing(const std::string& stream, const LossSums& known) {
  const LossSums sums = sumsOf(stream);
  LedgerEntry entry;
  entry.stream = stream;
  entry.first.wallMs = entry.last.wallMs = _clock.wallMs();
  for (size_t i = 0; i < kLossCauses; ++i) {
    entry.cause = static_cast<LossCause>(i);
    entry.counted = true;
    entry.count = known[i].lines - std::min(known[i].lines, sums[i].lines);
    if (entry.count > 0) _content.entries.push_back(entry);
    // What never appeared may have appeared since.
    if (entry.cause == LossCause::logGap) continue;
    entry.counted = false;
    entry.count = known[i].uncounted - std::min(known[i].uncounted, sums[i].uncounted);
    if (entry.count > 0) _content.entries.push_back(entry);
  }
  mergeEntries(_content.entries, kMaxEntries);
}

StreamState LossLedger::resume(const std::string& stream, const std::optional<StreamState>& saved) {
  const Synchronized held(_lock);
  changed();
  uint64_t& number = numberOf(stream);
  const uint64_t past = saved ? saved->number : number;
  number = std::max(number, past);
  const bool taken = takeBack(stream, past);
  if (saved) addWhatIsMissing(stream, saved->lost);
  // Once they are found again they must not come back beside what they are entered as then.
  if (taken) save();
  StreamState state{past, 0, 0, _clock.wallMs(), sumsOf(stream)};
  state.read = linesLost(state.lost);
  if (!saved) return state;
  if (state.read != linesLost(saved->lost)) {
    eventlog::event(EventId::accountReopened, kLedgerSource,
                    {stream, linesLost(saved->lost), state.read});
    return state;
  }
  state.read = saved->read;
  state.delivered = saved->delivered;
  state.sinceMs = saved->sinceMs;
  return state;
}

void LossLedger::settle(const std::string& stream, std::span<const Loss> losses,
                        StreamState& state) {
  if (losses.empty()) return;
  const Synchronized held(_lock);
  // Its pointer has gone past all that was settled before.
  takeBack(stream, state.number);
  uint64_t& number = numberOf(stream);
  number = number < kMostSettlements ? number + 1 : 1;
  state.number = number;
  for (const Loss& loss : losses) {
    LedgerEntry entry;
    static_cast<Loss&>(entry) = loss;
    entry.stream = stream;
    entry.log = ledgerLogName(loss.log);
    entry.number = state.number;
    addTo(state.lost, entry);
    _content.entries.push_back(std::move(entry));
  }
  save();
}

void LossLedger::publish(const std::string& stream, const StreamState& state, uint64_t waiting) {
  const StreamAccount account{stream,          state.sinceMs, state.read,
                              state.delivered, waiting,       linesLost(state.lost)};
  const Synchronized held(_lock);
  const auto found =
      std::find_if(_accounts.begin(), _accounts.end(),
                   [&](const StreamAccount& known) { return known.stream == stream; });
  if (found == _accounts.end()) {
    _accounts.push_back(account);
  } else if (*found == account) {
    return;
  } else {
    *found = account;
  }
  changed();
}

LedgerView LossLedger::view() const {
  const Synchronized held(_lock);
  LedgerView view{_revision, _accounts, {}, _content.entries};
  for (const LedgerEntry& entry : view.entries) addTo(view.totals, entry);
  for (StreamAccount& account : view.accounts)
    account.uncounted = uncountedLosses(sumsOf(account.stream));
  return view;
}

}  // namespace korvane
