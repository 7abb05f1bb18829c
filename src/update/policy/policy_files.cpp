#include "update/policy/policy_files.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <set>
#include <vector>

#include "config/agent_config.h"
#include "config/install_root.h"
#include "driver/driver.h"
#include "eventlog/event_log.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "platform/platform.h"
#include "update/policy/policy_processor.h"

namespace korvane {
namespace {

constexpr char kFilesTag[] = "PolicyFiles";
constexpr size_t kPieceBytes = 64 * 1024;
constexpr std::string_view kPrefix = "policy";
// What a journal that could not be written leaves.
constexpr std::string_view kUnfinishedJournal = "policy.journal.new";
constexpr std::string_view kPlusEnding = ".sbp.zip";
// The base ends in a dot of its own.
constexpr std::string_view kTranslated[] = {"..conf", "..trans", "..err"};
constexpr std::string_view kPassing[] = {"", ".tmp", ".old"};

platform::Files& policyDisk() {
  return platform::current().files;
}

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

// Of the files in use, wherever they lie: a name is not given twice.
std::set<std::string> basesInUse() {
  const AgentConfig& config = *AgentConfig::getInstance();
  std::set<std::string> bases;
  for (const STRING& path :
       {config.getPlusPolicyFile(), config.getIDSPlusFileName(), currentDriver().minusFile()})
    bases.emplace(baseOf(platform::fileNameOf(path.toUtf8())));
  return bases;
}

size_t readPiece(platform::File& file, std::vector<char>& piece, bool& good) {
  size_t got = 0;
  good = file.read(piece.data(), piece.size(), got) == 0;
  return got;
}

}  // namespace

std::string driverDirectory() {
  return platform::joinPath(policyDisk(), {installDirectory(), "driver"});
}

std::string historyDirectory() {
  return platform::joinPath(policyDisk(), {installDirectory(), "history"});
}

PolicyFiles::PolicyFiles(const STRING& plusFile) {
  const std::string base = PolicyProcessor::getPolicyBase(plusFile).toUtf8();
  minus = base + ".conf";
  items = base + ".trans";
  freshMinus = minus + ".tmp";
  freshItems = items + ".tmp";
  oldMinus = minus + ".old";
  oldItems = items + ".old";
}

Presence presenceOf(const std::string& path) {
  platform::FileInfo info;
  const int error = policyDisk().info(path, info);
  if (error == 0) return Presence::present;
  return error == ENOENT || error == ENOTDIR ? Presence::absent : Presence::unknown;
}

int removeIfThere(const std::string& path) {
  const int error = policyDisk().remove(path);
  return error == ENOENT ? 0 : error;
}

int flushFile(const std::string& path) {
  std::unique_ptr<platform::File> file;
  const int error = policyDisk().open(path, platform::OpenMode::readWrite, file);
  return error != 0 ? error : file->flush();
}

bool sameContent(const std::string& one, const std::string& other) {
  std::unique_ptr<platform::File> left;
  std::unique_ptr<platform::File> right;
  if (policyDisk().open(one, platform::OpenMode::read, left) != 0 ||
      policyDisk().open(other, platform::OpenMode::read, right) != 0)
    return false;
  std::vector<char> leftPiece(kPieceBytes);
  std::vector<char> rightPiece(kPieceBytes);
  while (true) {
    bool leftGood = false;
    bool rightGood = false;
    const size_t got = readPiece(*left, leftPiece, leftGood);
    if (readPiece(*right, rightPiece, rightGood) != got || !leftGood || !rightGood) return false;
    if (!std::equal(leftPiece.begin(), leftPiece.begin() + static_cast<std::ptrdiff_t>(got),
                    rightPiece.begin()))
      return false;
    if (got < kPieceBytes) return true;
  }
}

void sweepPolicyFolder(const std::string& directory) {
  std::vector<platform::DirectoryEntry> entries;
  if (policyDisk().list(directory, entries) != 0 || policyDisk().flushDirectory(directory) != 0)
    return;
  const std::set<std::string> inUse = basesInUse();
  for (const platform::DirectoryEntry& entry : entries) {
    const std::string base(baseOf(entry.name));
    const bool ours = !base.empty() || entry.name == kUnfinishedJournal;
    if (entry.isDirectory || !ours) continue;
    if (!base.empty() && !isPassing(entry.name) && inUse.contains(base)) continue;
    const std::string path = platform::joinPath(policyDisk(), {directory, entry.name});
    if (const int error = policyDisk().remove(path))
      eventlog::trace(kFilesTag, "Cannot remove %s: error %d", path, error);
  }
}

}  // namespace korvane
