#include "archive/zip_file_writer.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <new>

#include "archive/zip_entry.h"
#include "platform/files.h"

namespace korvane::archive {
namespace detail {

struct FileStream {
  platform::File& file;
  uint64_t position = 0;
  uint64_t size = 0;
  int error = 0;
};

}  // namespace detail

namespace {

using detail::FileStream;

constexpr int kFirstYear = 1980;
constexpr int kLastYear = 2107;

// A date as the format packs it.
uLong packedDate(int64_t wallMs) {
  using namespace std::chrono;
  constexpr sys_days first = year(kFirstYear) / 1 / 1;
  constexpr sys_days behind = year(kLastYear + 1) / 1 / 1;
  const sys_seconds at = std::clamp(floor<seconds>(sys_time<milliseconds>(milliseconds(wallMs))),
                                    sys_seconds(first), sys_seconds(behind) - seconds(1));
  const sys_days midnight = floor<days>(at);
  const year_month_day date(midnight);
  const hh_mm_ss<seconds> time(at - midnight);
  return static_cast<uLong>(int{date.year()} - kFirstYear) << 25 |
         static_cast<uLong>(unsigned{date.month()}) << 21 |
         static_cast<uLong>(unsigned{date.day()}) << 16 |
         static_cast<uLong>(time.hours().count()) << 11 |
         static_cast<uLong>(time.minutes().count()) << 5 |
         static_cast<uLong>(time.seconds().count() / 2);
}

FileStream& fileStreamOf(voidpf stream) {
  return *static_cast<FileStream*>(stream);
}

voidpf openStream(voidpf opaque, const void*, int) {
  return opaque;
}

uLong readStream(voidpf, voidpf, void*, uLong) {
  return 0;
}

// What has failed is kept here and nothing is written any more; the compressor is not told, since it
// would not give back the memory of an entry that it cannot begin.
uLong writeStream(voidpf, voidpf opened, const void* bytes, uLong size) {
  FileStream& stream = fileStreamOf(opened);
  if (stream.error == 0) stream.error = stream.file.write(bytes, size);
  stream.position += size;
  stream.size = std::max(stream.size, stream.position);
  return size;
}

ZPOS64_T tellStream(voidpf, voidpf opened) {
  return fileStreamOf(opened).position;
}

// minizip goes back to complete an entry's header.
long seekStream(voidpf, voidpf opened, ZPOS64_T offset, int origin) {
  FileStream& stream = fileStreamOf(opened);
  const uint64_t from = origin == ZLIB_FILEFUNC_SEEK_CUR   ? stream.position
                        : origin == ZLIB_FILEFUNC_SEEK_END ? stream.size
                                                           : 0;
  if (offset > stream.size - from) return -1;
  if (stream.error == 0) stream.error = stream.file.seek(static_cast<int64_t>(from + offset));
  stream.position = from + offset;
  return 0;
}

int closeStream(voidpf, voidpf) {
  return 0;
}

int errorOfStream(voidpf, voidpf) {
  return 0;
}

}  // namespace

struct ZipFileWriter::Output {
  explicit Output(platform::File& file) : stream{file} {
    zlib_filefunc64_def functions = {&openStream, &readStream,  &writeStream,   &tellStream,
                                     &seekStream, &closeStream, &errorOfStream, &stream};
    zip = zipOpen2_64(nullptr, APPEND_STATUS_CREATE, nullptr, &functions);
    if (!zip) throw std::bad_alloc();
  }
  ~Output() { close(); }
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  int close() {
    const int code = zip ? zipClose(zip, nullptr) : ZIP_OK;
    zip = nullptr;
    return code;
  }

  FileStream stream;
  zipFile zip = nullptr;
};

ZipFileWriter::ZipFileWriter(platform::File& file) : _output(std::make_unique<Output>(file)) {}

// Whoever leaves an archive unfinished has no use for a directory at its end.
ZipFileWriter::~ZipFileWriter() {
  if (_output->zip && _output->stream.error == 0) _output->stream.error = ECANCELED;
}

int ZipFileWriter::result(int code) const {
  if (_output->stream.error != 0) return _output->stream.error;
  return code == ZIP_OK ? 0 : EIO;
}

int ZipFileWriter::begin(const std::string& name, int64_t modifiedMs) {
  return result(beginEntry(_output->zip, name.c_str(), packedDate(modifiedMs)));
}

int ZipFileWriter::add(std::string_view piece) {
  return result(
      zipWriteInFileInZip(_output->zip, piece.data(), static_cast<unsigned>(piece.size())));
}

int ZipFileWriter::end() {
  return result(zipCloseFileInZip(_output->zip));
}

int ZipFileWriter::finish() {
  return result(_output->close());
}

uint64_t ZipFileWriter::written() const {
  return _output->stream.size;
}

}  // namespace korvane::archive
