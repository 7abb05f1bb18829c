// PolicyProcessor: names, IDS policies, and the removal of what is not needed any more.
#include <cerrno>

#include "config/install_root.h"
#include "eventlog/event_log.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "platform/platform.h"
#include "update/policy/policy_attempt.h"
#include "update/policy/policy_journal.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kHidsTag[] = "translateHIDSPolicy";
constexpr char kOldTag[] = "removeOldPolicyFiles";
constexpr char kCleanTag[] = "cleanUpdateDirectory";
constexpr char kFormerProduct[] = "TRLM";
constexpr size_t kBaseCut = 7;

platform::Files& housekeepingDisk() {
  return platform::current().files;
}

void removeTraced(const char* format, const std::string& path) {
  if (housekeepingDisk().remove(path) != 0) eventlog::trace(kOldTag, format, path);
}

}  // namespace

STRING PolicyProcessor::getPolicyBase(const STRING& path) {
  return path.substr(0, path.length() < kBaseCut ? 0 : path.length() - kBaseCut);
}

STRING PolicyProcessor::getPolicyFileName(const STRING& path) {
  return platform::fileNameOf(path.toUtf8());
}

bool PolicyProcessor::translateHIDSPolicy(const STRING& plusFile, STRING& resultFile) {
  resultFile.clear();
  if (!canTranslate(plusFile, kHidsTag)) {
    _errorText = "Plus file missing " + plusFile;
    return false;
  }
  Attempt attempt(plusFile, {});
  const std::string errorFile = getPolicyBase(plusFile).toUtf8() + ".err";
  // What cannot be removed now is overwritten or swept later.
  ignoreResult(removeIfThere(errorFile));
  ignoreResult(removeIfThere(attempt.files.freshMinus));
  const int code =
      RunTranslator("-hidsagent", plusFile, errorFile, attempt.files.freshMinus, STRING());
  if (code != 0 && !_stopped) _errorText = getTranslationError(code, errorFile);
  const bool done = code == 0 && !_stopped && takeHIDSResult(attempt.files);
  // What cannot be removed now is overwritten or swept later.
  ignoreResult(removeIfThere(errorFile));
  if (!done) ignoreResult(removeIfThere(attempt.files.freshMinus));
  if (_stopped) return false;
  attempt.record.resultCode = code;
  attempt.record.errorText = _errorText;
  UpdateHistoryIDS(attempt);
  if (done) resultFile = attempt.files.minus;
  return done;
}

bool PolicyProcessor::takeHIDSResult(const PolicyFiles& names) {
  if (presenceOf(names.freshMinus) == Presence::absent) {
    _errorText = "The translator produced no policy.";
    return false;
  }
  if (flushFile(names.freshMinus) == 0 &&
      housekeepingDisk().replace(names.freshMinus, names.minus) == 0 &&
      housekeepingDisk().flushDirectory(platform::directoryOf(names.minus)) == 0)
    return true;
  _errorText = "Cannot write to file : " + names.minus;
  return false;
}

void PolicyProcessor::removeOldPolicyFiles(STRING& oldPlusFile) {
  const PolicyFiles old(oldPlusFile);
  removeTraced("Cannot remove old Plus : %s", oldPlusFile.toUtf8());
  removeTraced("Cannot remove old Minus : %s", old.minus);
  removeTraced("Cannot remove old Trans : %s", old.items);
  oldPlusFile.clear();
}

void PolicyProcessor::RemovePrevHIDSPolicies() {
  PolicyJournal journal;
  // Files of a change that is not undone yet are needed for that.
  if (readPolicyJournal(journal) != ENOENT) return;
  sweepPolicyFolder(driverDirectory());
  sweepPolicyFolder(
      platform::joinPath(housekeepingDisk(), {installRoot(), kFormerProduct, "driver"}));
}

bool PolicyProcessor::cleanUpdateDirectory(const STRING& directory) {
  eventlog::trace(kCleanTag, "Getting called with dir %s", directory);
  return platform::emptyDirectory(housekeepingDisk(), directory.toUtf8()) == 0;
}

}  // namespace korvane
