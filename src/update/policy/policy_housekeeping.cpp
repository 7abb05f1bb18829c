#include "update/policy/policy_housekeeping.h"

#include <cerrno>
#include <memory>
#include <string_view>
#include <vector>

#include "config/install_root.h"
#include "config/policy_settings.h"
#include "driver/driver.h"
#include "eventlog/event_log.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "update/policy/policy_files.h"
#include "update/policy/policy_journal.h"
#include "util/dates.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kSaveTag[] = "savePolicyToFile";
constexpr char kOldTag[] = "removeOldPolicyFiles";
constexpr char kSweepTag[] = "PolicyFiles";
constexpr char kCleanTag[] = "cleanUpdateDirectory";
constexpr char kNamePattern[] = "policy%M%S%T.sbp.zip";
constexpr char kFormerProduct[] = "TRLM";
constexpr std::string_view kPrefix = "policy";
// What a journal that could not be written leaves is one that was to become this.
constexpr std::string_view kJournal = "policy.journal";
constexpr std::string_view kPlusEnding = ".sbp.zip";
// The base ends in a dot of its own.
constexpr std::string_view kTranslated[] = {"..conf", "..trans", "..err"};
constexpr std::string_view kPassing[] = {"", ".tmp", ".old"};

// "policy2026." of any of its files; empty for another file.
std::string_view baseOf(std::string_view name) {
  if (!name.starts_with(kPrefix)) return {};
  const size_t end = name.find_first_not_of("0123456789", kPrefix.size());
  if (end == kPrefix.size() || end == std::string_view::npos) return {};
  const std::string_view ending = name.substr(end);
  if (ending == kPlusEnding) return name.substr(0, end + 1);
  for (const std::string_view translated : kTranslated)
    for (const std::string_view passing : kPassing)
      if (ending == std::string(translated).append(passing)) return name.substr(0, end + 1);
  return {};
}

bool isPassing(std::string_view name) {
  return name.ends_with(".tmp") || name.ends_with(".old") || name.ends_with("..err");
}

}  // namespace

std::string PolicyHousekeeping::newPlusFile() {
  std::string path;
  do {
    const STRING name = expandDatePattern(kNamePattern, _parts.clock.wallMs());
    path = platform::joinPath(_parts.files, {driverDirectory(_parts.files), name.toUtf8()});
  } while (path == _parts.settings.getPlusPolicyFile().toUtf8() ||
           path == _parts.settings.getIDSPlusFileName().toUtf8());
  return path;
}

// Its name is sure when the folder is flushed for what is made of it.
int PolicyHousekeeping::writeNewFile(const std::string& path, const char* data, size_t size) {
  std::unique_ptr<platform::File> file;
  if (const int error = _parts.files.open(path, platform::OpenMode::create, file)) {
    eventlog::trace(kSaveTag, "Cannot open file %s", path);
    return error;
  }
  eventlog::trace(kSaveTag, "Opened file %s", path);
  int error = file->write(data, size);
  if (error == 0) error = file->flush();
  if (error == 0) return 0;
  eventlog::trace(kSaveTag, "Cannot write to file : %s", path);
  file.reset();
  // The error that is told is the one of the writing.
  ignoreResult(removeIfThere(_parts.files, path));
  return error;
}

STRING PolicyHousekeeping::savePolicyToFile(const char* data, size_t size) {
  if (size == 0) {
    eventlog::trace(kSaveTag, "Policy plus file is empty.");
    return {};
  }
  // A folder that cannot be made shows in the writing of the file.
  ignoreResult(_parts.files.makeDirectories(driverDirectory(_parts.files)));
  const std::string path = newPlusFile();
  if (writeNewFile(path, data, size) != 0) return {};
  eventlog::trace(kSaveTag, "Saved policy to disk");
  return path;
}

void PolicyHousekeeping::removeTraced(const char* format, const std::string& path) {
  if (_parts.files.remove(path) != 0) eventlog::trace(kOldTag, format, path);
}

void PolicyHousekeeping::removeOldPolicyFiles(STRING& oldPlusFile) {
  const PolicyFiles old(oldPlusFile);
  removeTraced("Cannot remove old Plus : %s", oldPlusFile.toUtf8());
  removeTraced("Cannot remove old Minus : %s", old.minus);
  removeTraced("Cannot remove old Trans : %s", old.items);
  oldPlusFile.clear();
}

std::set<std::string> PolicyHousekeeping::basesInUse() {
  const PolicySettings& settings = _parts.settings;
  std::set<std::string> bases;
  for (const STRING& path :
       {settings.getPlusPolicyFile(), settings.getIDSPlusFileName(), _parts.driver.minusFile()})
    bases.emplace(baseOf(platform::fileNameOf(path.toUtf8())));
  return bases;
}

void PolicyHousekeeping::sweepFolder(const std::string& directory) {
  platform::Files& files = _parts.files;
  std::vector<platform::DirectoryEntry> entries;
  if (files.list(directory, entries) != 0 || files.flushDirectory(directory) != 0) return;
  const std::set<std::string> inUse = basesInUse();
  for (const platform::DirectoryEntry& entry : entries) {
    const std::string base(baseOf(entry.name));
    const bool ours = !base.empty() || platform::unfinishedTarget(entry.name) == kJournal;
    if (entry.isDirectory || !ours) continue;
    if (!base.empty() && !isPassing(entry.name) && inUse.contains(base)) continue;
    const std::string path = platform::joinPath(files, {directory, entry.name});
    if (const int error = files.remove(path))
      eventlog::trace(kSweepTag, "Cannot remove %s: error %d", path, error);
  }
}

void PolicyHousekeeping::sweep() {
  sweepFolder(driverDirectory(_parts.files));
}

void PolicyHousekeeping::RemovePrevHIDSPolicies() {
  PolicyJournal journal;
  // Files of a change that is not undone yet are needed for that.
  if (readPolicyJournal(_parts.files, journal) != ENOENT) return;
  sweep();
  sweepFolder(platform::joinPath(_parts.files, {installRoot(), kFormerProduct, "driver"}));
}

bool PolicyHousekeeping::cleanUpdateDirectory(platform::Files& files, const STRING& directory) {
  eventlog::trace(kCleanTag, "Getting called with dir %s", directory);
  return platform::emptyDirectory(files, directory.toUtf8()) == 0;
}

}  // namespace korvane
