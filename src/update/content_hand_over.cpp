#include "update/content_hand_over.h"

#include "archive/unpacking.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "platform/platform.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

using Outcome = ContentPackage::Outcome;

constexpr size_t kDigitsInName = 16;

std::string pathOf(const std::string& name) {
  return platform::joinPath(platform::current().files, {ContentKind::handOverDirectory(), name});
}

bool putInPlace(const ContentKind& kind, const ContentPackage& package, const std::string& name,
                const std::function<bool()>& cancelled, archive::Refusal& refusal) {
  platform::Files& files = platform::current().files;
  archive::ZipArchive zip = package.archive();
  archive::Unpacking unpacking(files, pathOf(name), cancelled);
  if (!zip.open(refusal) || !unpacking.stage(zip, refusal) || !unpacking.commit(refusal))
    return false;
  const std::string pointer = pathOf(std::string(kind.shortName) + ".properties");
  const int error = platform::writeFileAtomically(files, pointer, package.pointerText(name));
  if (error)
    refusal = {archive::Fault::fileOperation, kContentArchive, pointer, "cannot write", error};
  return error == 0;
}

// What cannot be removed now, for a reader that has it open, goes the next time.
void removeOthers(const ContentKind& kind, const std::string& name) {
  platform::Files& files = platform::current().files;
  std::vector<platform::DirectoryEntry> entries;
  ignoreResult(files.list(ContentKind::handOverDirectory(), entries));
  for (const platform::DirectoryEntry& entry : entries) {
    const bool ours = entry.name.starts_with(std::string(kind.shortName) + "-");
    if (entry.isDirectory && ours && entry.name != name)
      ignoreResult(platform::removeTree(files, pathOf(entry.name)));
  }
}

}  // namespace

Outcome handOverContent(const ContentKind& kind, const std::function<bool()>& cancelled,
                        archive::Refusal& refusal) {
  const Synchronized hold(contentLock());
  AgentConfig& config = *AgentConfig::getInstance();
  ContentPackage package;
  const Outcome outcome = package.read(kind, refusal);
  if (outcome == Outcome::refused) (config.*kind.setUpdateNow)(false);
  if (outcome != Outcome::done) return outcome;
  const std::string name =
      std::string(kind.shortName) + "-" + package.digest().substr(0, kDigitsInName);
  if (!putInPlace(kind, package, name, cancelled, refusal)) return Outcome::failed;
  {
    const AgentConfig::ChangeGroup together(config);
    (config.*kind.setMetadata)(package.metadata());
    (config.*kind.setUpdateNow)(false);
  }
  removeOthers(kind, name);
  return Outcome::done;
}

}  // namespace korvane
