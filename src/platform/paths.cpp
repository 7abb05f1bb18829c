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

int writeAndFlush(Files& files, const std::string& path, std::string_view bytes) {
  std::unique_ptr<File> file;
  if (const int error = files.open(path, OpenMode::create, file)) return error;
  if (const int error = file->write(bytes.data(), bytes.size())) return error;
  return file->flush();
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
  const std::string temporary = path + ".new";
  int error = writeAndFlush(files, temporary, bytes);
  if (!error) error = files.replace(temporary, path);
  if (error) {
    // The error that is told is the one of the writing; the next writing empties the file.
    ignoreResult(files.remove(temporary));
    return error;
  }
  const std::string directory = directoryOf(path);
  return files.flushDirectory(directory.empty() ? "." : directory);
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
