#include "archive/zip_file.h"

#include <cerrno>
#include <utility>
#include <vector>

#include "archive/zip_file_writer.h"
#include "platform/files.h"

namespace korvane::archive {
namespace {

constexpr size_t kCopiedBytes = 64 * 1024;
constexpr uint64_t kMostEntryBytes = 0xFFFFFFFE;  // without the format's 64-bit sizes
constexpr int64_t kBeforeAllDates = 0;            // of the format: its first one is taken

}  // namespace

struct ZipFile::Output {
  explicit Output(std::unique_ptr<platform::File> made) : file(std::move(made)), zip(*file) {}
  std::unique_ptr<platform::File> file;
  ZipFileWriter zip;
};

ZipFile::ZipFile(platform::Files& files, std::string path, std::function<bool()> cancelled)
    : _files(files), _path(std::move(path)), _cancelled(std::move(cancelled)) {}

ZipFile::~ZipFile() = default;

int ZipFile::begin() {
  if (_output) return 0;
  std::unique_ptr<platform::File> file;
  const int error = _files.open(_path, platform::OpenMode::create, file);
  if (error == 0) _output = std::make_unique<Output>(std::move(file));
  return error;
}

int ZipFile::add(const std::string& name, const std::string& source) {
  if (const int error = begin()) return error;
  std::unique_ptr<platform::File> from;
  if (const int error = _files.open(source, platform::OpenMode::read, from)) return error;
  if (const int error = _output->zip.begin(name, kBeforeAllDates)) return error;
  const int copied = copy(*from);
  const int ended = _output->zip.end();
  return copied != 0 ? copied : ended;
}

int ZipFile::copy(platform::File& source) {
  std::vector<char> piece(kCopiedBytes);
  for (uint64_t total = 0;;) {
    if (_cancelled && _cancelled()) return ECANCELED;
    size_t got = 0;
    if (const int error = source.read(piece.data(), piece.size(), got)) return error;
    if (got == 0) return 0;
    total += got;
    if (total > kMostEntryBytes) return EFBIG;
    if (const int error = _output->zip.add({piece.data(), got})) return error;
  }
}

int ZipFile::finish() {
  if (const int error = begin()) return error;
  if (const int error = _output->zip.finish()) return error;
  const int flushed = _output->file->flush();
  _output.reset();
  return flushed;
}

}  // namespace korvane::archive
