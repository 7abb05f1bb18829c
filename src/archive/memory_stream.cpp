#include "archive/memory_stream.h"

#include <algorithm>
#include <cstring>
#include <exception>

namespace korvane::archive {
namespace {

MemoryStream& streamOf(voidpf stream) {
  return *static_cast<MemoryStream*>(stream);
}

voidpf open(voidpf opaque, const void*, int) {
  return opaque;
}

uLong read(voidpf, voidpf opened, void* buffer, uLong size) {
  MemoryStream& stream = streamOf(opened);
  const size_t got = std::min<size_t>(size, stream.bytes.size() - stream.position);
  if (got) std::memcpy(buffer, stream.bytes.data() + stream.position, got);
  stream.position += got;
  stream.overrun = stream.overrun || got < size;
  return static_cast<uLong>(got);
}

// minizip goes back to complete an entry's header. No exception may pass through it.
uLong write(voidpf, voidpf opened, const void* buffer, uLong size) {
  MemoryStream& stream = streamOf(opened);
  if (!stream.written) return 0;
  std::string& bytes = *stream.written;
  try {
    bytes.resize(std::max<size_t>(bytes.size(), stream.position + size));
  } catch (const std::exception&) {
    return 0;
  }
  std::copy_n(static_cast<const char*>(buffer), size, bytes.data() + stream.position);
  stream.bytes = bytes;
  stream.position += size;
  return size;
}

ZPOS64_T tell(voidpf, voidpf opened) {
  return streamOf(opened).position;
}

long seek(voidpf, voidpf opened, ZPOS64_T offset, int origin) {
  MemoryStream& stream = streamOf(opened);
  const ZPOS64_T from = origin == ZLIB_FILEFUNC_SEEK_CUR   ? stream.position
                        : origin == ZLIB_FILEFUNC_SEEK_END ? stream.bytes.size()
                                                           : 0;
  if (offset > stream.bytes.size() - from) return -1;
  stream.position = static_cast<size_t>(from + offset);
  return 0;
}

int close(voidpf, voidpf) {
  return 0;
}

int error(voidpf, voidpf opened) {
  return streamOf(opened).overrun;
}

}  // namespace

zlib_filefunc64_def memoryFunctions(MemoryStream& stream) {
  return {&open, &read, &write, &tell, &seek, &close, &error, &stream};
}

}  // namespace korvane::archive
