#include "cloud/application_folder.h"

#include <algorithm>

#include "cloud/source_combination.h"
#include "config/install_root.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "update/policy/policy_files.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kFolder[] = "applications";
constexpr char kArchive[] = ".zip";
constexpr char kNext[] = ".zip.next";
constexpr char kGone[] = ".zip.gone";

// What a crash leaves of it is told from the whole by its content.
int write(platform::Files& files, const std::string& directory, const std::string& path,
          std::string_view bytes) {
  std::unique_ptr<platform::File> file;
  int error = files.makeDirectories(directory);
  if (!error) error = files.open(path, platform::OpenMode::create, file);
  if (!error) error = file->write(bytes.data(), bytes.size());
  // Of an empty one only its name has to stay.
  if (!error && !bytes.empty()) error = file->flush();
  if (!error) error = files.flushDirectory(directory);
  file.reset();
  // The error that is told is the one of the writing.
  if (error) ignoreResult(removeIfThere(files, path));
  return error;
}

}  // namespace

ApplicationFolder::ApplicationFolder(platform::Files& files)
    : _files(files), _directory(platform::joinPath(_files, {installDirectory(), kFolder})) {}

std::string ApplicationFolder::path(const std::string& application) const {
  return platform::joinPath(_files, {_directory, application + kArchive});
}

std::string ApplicationFolder::stagedPath(const Staged& staged) const {
  return platform::joinPath(_files,
                            {_directory, staged.application + (staged.removal ? kGone : kNext)});
}

std::vector<std::string> ApplicationFolder::names(std::string_view ending) const {
  std::vector<platform::DirectoryEntry> entries;
  std::vector<std::string> found;
  // A folder that is not there holds no application.
  ignoreResult(_files.list(_directory, entries));
  for (const platform::DirectoryEntry& entry : entries) {
    if (entry.isDirectory || !entry.name.ends_with(ending)) continue;
    std::string name = entry.name.substr(0, entry.name.size() - ending.size());
    if (isApplicationName(name)) found.push_back(std::move(name));
  }
  std::sort(found.begin(), found.end());
  return found;
}

std::vector<std::string> ApplicationFolder::stored() const {
  return names(kArchive);
}

std::vector<ApplicationFolder::Staged> ApplicationFolder::staged() const {
  std::vector<Staged> found;
  for (const bool removal : {false, true})
    for (std::string& name : names(removal ? kGone : kNext))
      found.push_back({std::move(name), removal});
  return found;
}

int ApplicationFolder::read(const std::string& application, std::string& archive) const {
  return platform::readWholeFile(_files, path(application), kMaxPolicyBytes, archive);
}

int ApplicationFolder::readStaged(const std::string& application, std::string& archive) const {
  return platform::readWholeFile(_files, stagedPath({application, false}), kMaxPolicyBytes,
                                 archive);
}

int ApplicationFolder::stage(const std::string& application, std::string_view archive) {
  return write(_files, _directory, stagedPath({application, false}), archive);
}

int ApplicationFolder::stageRemoval(const std::string& application) {
  return write(_files, _directory, stagedPath({application, true}), {});
}

int ApplicationFolder::makeGood(const Staged& staged) {
  if (!staged.removal) {
    const int error = _files.replace(stagedPath(staged), path(staged.application));
    return error ? error : _files.flushDirectory(_directory);
  }
  // The mark goes last: with it the removal can be done again.
  const int error = remove(staged.application);
  return error ? error : drop(staged);
}

int ApplicationFolder::drop(const Staged& staged) {
  return removeIfThere(_files, stagedPath(staged));
}

int ApplicationFolder::remove(const std::string& application) {
  const int error = removeIfThere(_files, path(application));
  return error ? error : _files.flushDirectory(_directory);
}

}  // namespace korvane
