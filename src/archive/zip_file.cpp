#include "archive/zip_file.h"

#include <cerrno>
#include <utility>
#include <vector>

#include "archive/zip_entry.h"
#include "platform/files.h"

namespace korvane::archive {
// The archive's file as minizip uses it; the first error counts.
struct DiskStream {
  std::unique_ptr<platform::File> file;
  int error = 0;

  bool noted(int result) {
    if (error == 0) error = result;
    return error == 0;
  }
};

namespace {

constexpr size_t kCopiedBytes = 64 * 1024;
constexpr uint64_t kMostEntryBytes = 0xFFFFFFFE;  // without the format's 64-bit sizes

DiskStream& diskStream(voidpf stream) {
  return *static_cast<DiskStream*>(stream);
}

voidpf diskOpen(voidpf opaque, const void*, int) {
  return opaque;
}

uLong diskRead(voidpf, voidpf opened, void* buffer, uLong size) {
  DiskStream& stream = diskStream(opened);
  size_t got = 0;
  stream.noted(stream.file->read(buffer, size, got));
  return static_cast<uLong>(got);
}

uLong diskWrite(voidpf, voidpf opened, const void* buffer, uLong size) {
  DiskStream& stream = diskStream(opened);
  return stream.noted(stream.file->write(buffer, size)) ? size : 0;
}

ZPOS64_T diskTell(voidpf, voidpf opened) {
  return static_cast<ZPOS64_T>(diskStream(opened).file->tell());
}

long diskSeek(voidpf, voidpf opened, ZPOS64_T offset, int origin) {
  DiskStream& stream = diskStream(opened);
  auto to = static_cast<int64_t>(offset);
  if (origin == ZLIB_FILEFUNC_SEEK_CUR) to += stream.file->tell();
  if (origin == ZLIB_FILEFUNC_SEEK_END) {
    platform::FileInfo info;
    if (!stream.noted(stream.file->info(info))) return -1;
    to += static_cast<int64_t>(info.size);
  }
  return stream.noted(stream.file->seek(to)) ? 0 : -1;
}

int diskClose(voidpf, voidpf) {
  return 0;
}

int diskError(voidpf, voidpf opened) {
  return diskStream(opened).error;
}

}  // namespace

struct ZipFile::Output {
  DiskStream stream;
  zipFile zip = nullptr;

  ~Output() {
    if (zip) zipClose(zip, nullptr);
  }
  // What minizip's code means: the disk's error, or else that there is no memory.
  int errorOf(int code) const {
    if (stream.error != 0) return stream.error;
    return code == ZIP_OK ? 0 : ENOMEM;
  }
};

ZipFile::ZipFile(platform::Files& files, std::string path, std::function<bool()> cancelled)
    : _files(files), _path(std::move(path)), _cancelled(std::move(cancelled)) {}

ZipFile::~ZipFile() = default;

int ZipFile::begin() {
  if (_output) return 0;
  auto output = std::make_unique<Output>();
  if (const int error = _files.open(_path, platform::OpenMode::create, output->stream.file))
    return error;
  zlib_filefunc64_def functions{&diskOpen, &diskRead,  &diskWrite, &diskTell,
                                &diskSeek, &diskClose, &diskError, &output->stream};
  output->zip = zipOpen2_64(nullptr, APPEND_STATUS_CREATE, nullptr, &functions);
  if (!output->zip) return output->errorOf(ZIP_INTERNALERROR);
  _output = std::move(output);
  return 0;
}

int ZipFile::add(const std::string& name, const std::string& source) {
  if (const int error = begin()) return error;
  std::unique_ptr<platform::File> from;
  if (const int error = _files.open(source, platform::OpenMode::read, from)) return error;
  const int opened = beginEntry(_output->zip, name.c_str());
  if (opened != ZIP_OK) return _output->errorOf(opened);
  const int copied = copy(*from);
  const int closed = _output->errorOf(zipCloseFileInZip(_output->zip));
  return copied != 0 ? copied : closed;
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
    const int written = zipWriteInFileInZip(_output->zip, piece.data(), static_cast<unsigned>(got));
    if (written != ZIP_OK) return _output->errorOf(written);
  }
}

int ZipFile::finish() {
  if (const int error = begin()) return error;
  const int closed = zipClose(std::exchange(_output->zip, nullptr), nullptr);
  if (const int error = _output->errorOf(closed)) return error;
  const int flushed = _output->stream.file->flush();
  _output->stream.file.reset();
  return flushed;
}

}  // namespace korvane::archive
