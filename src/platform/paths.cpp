#include "platform/paths.h"

#include "platform/files.h"
#include "util/ignore_result.h"

#include <cerrno>

namespace korvane::platform {
namespace {

constexpr std::string_view kSeparators = "/\\";

bool isSeparator(char c) {
  return kSeparators.find(c) != std::string_view::npos;
}

constexpr std::string_view kUnfinished = ".new-";
constexpr std::string_view kFreshDigits = "abcdefghijklmnopqrstuvwxyz0123456789";
constexpr size_t kFreshName = 12;
constexpr int kFreshNames = 16;  // that are tried, should somebody have one already

int makeBeside(Files& files, const std::string& path, std::string& made,
               std::unique_ptr<File>& file) {
  int error = EEXIST;
  for (int tried = 0; error == EEXIST && tried < kFreshNames; ++tried) {
    made = path + std::string(kUnfinished) + files.freshName();
    error = files.open(made, OpenMode::createNew, file);
  }
  return error;
}

}  // namespace

std::string joinPath(const Files& files, std::initializer_list<std::string_view> parts) {
  std::string path;
  for (std::string_view part : parts) {
    if (part.empty()) continue;
    if (!path.empty()) {
      while (!part.empty() && isSeparator(part.front())) part.remove_prefix(1);
      if (!isSeparator(path.back())) path += files.separator();
    }
    path += part;
  }
  return path;
}

std::string directoryOf(std::string_view path) {
  const size_t at = path.find_last_of(kSeparators);
  if (at == std::string_view::npos) return {};
  return std::string(path.substr(0, at == 0 ? 1 : at));
}

std::string fileNameOf(std::string_view path) {
  const size_t at = path.find_last_of(kSeparators);
  return std::string(at == std::string_view::npos ? path : path.substr(at + 1));
}

bool isAbsolutePath(std::string_view path) {
  if (path.empty()) return false;
  if (isSeparator(path[0])) return true;
  const bool letter = (path[0] >= 'A' && path[0] <= 'Z') || (path[0] >= 'a' && path[0] <= 'z');
  return path.size() > 2 && letter && path[1] == ':' && isSeparator(path[2]);
}

bool fileExists(Files& files, const std::string& path) {
  FileInfo info;
  return files.info(path, info) == 0 && !info.isDirectory;
}

int readWholeFile(Files& files, const std::string& path, uint64_t maxBytes, std::string& out) {
  out.clear();
  std::unique_ptr<File> file;
  FileInfo info;
  if (const int error = files.open(path, OpenMode::read, file)) return error;
  if (const int error = file->info(info)) return error;
  if (info.size > maxBytes) return EFBIG;
  // One byte more than it held shows a file that is growing past the bound meanwhile.
  out.resize(static_cast<size_t>(info.size) + 1);
  size_t filled = 0, got = 0;
  do {
    if (filled == out.size()) out.resize(out.size() * 2);
    if (const int error = file->read(out.data() + filled, out.size() - filled, got)) {
      out.clear();
      return error;
    }
    filled += got;
  } while (filled == out.size() && filled <= maxBytes);
  out.resize(filled > maxBytes ? 0 : filled);
  return filled > maxBytes ? EFBIG : 0;
}

int writeFileAtomically(Files& files, const std::string& path, std::string_view bytes) {
  std::string temporary;
  std::unique_ptr<File> file;
  int error = makeBeside(files, path, temporary, file);
  if (error) return error;
  error = file->write(bytes.data(), bytes.size());
  if (!error) error = file->flush();
  file.reset();
  if (!error) error = files.replace(temporary, path);
  if (error) {
    // The error that is told is the one of the writing; what stays goes at the next start.
    ignoreResult(files.remove(temporary));
    return error;
  }
  const std::string directory = directoryOf(path);
  return files.flushDirectory(directory.empty() ? "." : directory);
}

std::string nameOfBits(uint64_t bits) {
  std::string name(kFreshName, '\0');
  for (char& digit : name) {
    digit = kFreshDigits[bits % kFreshDigits.size()];
    bits /= kFreshDigits.size();
  }
  return name;
}

std::string_view unfinishedTarget(std::string_view name) {
  if (name.size() <= kUnfinished.size() + kFreshName) return {};
  const std::string_view fresh = name.substr(name.size() - kFreshName);
  name.remove_suffix(kFreshName);
  if (!name.ends_with(kUnfinished) || fresh.find_first_not_of(kFreshDigits) != fresh.npos)
    return {};
  name.remove_suffix(kUnfinished.size());
  return name;
}

void removeUnfinished(Files& files, const std::string& directory,
                      const std::function<bool(std::string_view)>& concerns) {
  std::vector<DirectoryEntry> entries;
  if (files.list(directory, entries) != 0) return;
  size_t removed = 0;
  for (const DirectoryEntry& entry : entries) {
    const std::string_view target = unfinishedTarget(entry.name);
    if (entry.isDirectory || target.empty() || !concerns(target)) continue;
    if (++removed > kMostUnfinished) return;
    // What cannot be removed now goes at a later start.
    ignoreResult(files.remove(joinPath(files, {directory, entry.name})));
  }
}

int emptyDirectory(Files& files, const std::string& directory) {
  std::vector<DirectoryEntry> entries;
  int first = files.list(directory, entries);
  for (const DirectoryEntry& entry : entries) {
    const std::string path = joinPath(files, {directory, entry.name});
    const int error = entry.isDirectory ? removeTree(files, path) : files.remove(path);
    if (!first) first = error;
  }
  return first;
}

int removeTree(Files& files, const std::string& path) {
  // A link to a directory goes at the first attempt, so that what it leads to stays.
  const int error = files.remove(path);
  if (error == 0 || error == ENOENT) return 0;
  FileInfo info;
  if (files.info(path, info) != 0 || !info.isDirectory) return error;
  const int inside = emptyDirectory(files, path);
  const int emptied = files.remove(path);
  return inside ? inside : emptied;
}

}  // namespace korvane::platform
