#include "update/content_hand_over.h"

#include "archive/unpacking.h"
#include "config/settings_file.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

using Outcome = ContentPackage::Outcome;

constexpr size_t kDigitsInName = 16;

std::string pathOf(const platform::Files& files, const std::string& name) {
  return platform::joinPath(files, {ContentKind::handOverDirectory(files), name});
}

bool putInPlace(platform::Files& files, const ContentKind& kind, const ContentPackage& package,
                const std::string& name, const std::function<bool()>& cancelled,
                archive::Refusal& refusal) {
  archive::ZipArchive zip = package.archive();
  archive::Unpacking unpacking(files, pathOf(files, name), cancelled);
  if (!zip.open(refusal) || !unpacking.stage(zip, refusal) || !unpacking.commit(refusal))
    return false;
  const std::string pointer = pathOf(files, std::string(kind.shortName) + ".properties");
  const int error = platform::writeFileAtomically(files, pointer, package.pointerText(name));
  if (error)
    refusal = {archive::Fault::fileOperation, kContentArchive, pointer, "cannot write", error};
  return error == 0;
}

// What cannot be removed now, for a reader that has it open, goes the next time.
void removeOthers(platform::Files& files, const ContentKind& kind, const std::string& name) {
  std::vector<platform::DirectoryEntry> entries;
  ignoreResult(files.list(ContentKind::handOverDirectory(files), entries));
  for (const platform::DirectoryEntry& entry : entries) {
    const bool ours = entry.name.starts_with(std::string(kind.shortName) + "-");
    if (entry.isDirectory && ours && entry.name != name)
      ignoreResult(platform::removeTree(files, pathOf(files, entry.name)));
  }
}

}  // namespace

Outcome handOverContent(const ContentParts& parts, const ContentKind& kind,
                        const std::function<bool()>& cancelled, archive::Refusal& refusal) {
  const Synchronized hold(parts.lock);
  UpdateSettings& settings = parts.settings;
  ContentPackage package;
  const Outcome outcome = package.read(parts, kind, refusal);
  if (outcome == Outcome::refused) (settings.*kind.setUpdateNow)(false);
  if (outcome != Outcome::done) return outcome;
  const std::string name =
      std::string(kind.shortName) + "-" + package.digest().substr(0, kDigitsInName);
  if (!putInPlace(parts.files, kind, package, name, cancelled, refusal)) return Outcome::failed;
  {
    const SettingsFile::ChangeGroup together(parts.settingsFile);
    (settings.*kind.setMetadata)(package.metadata());
    (settings.*kind.setUpdateNow)(false);
  }
  removeOthers(parts.files, kind, name);
  return Outcome::done;
}

}  // namespace korvane
