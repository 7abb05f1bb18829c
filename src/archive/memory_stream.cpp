#include "archive/memory_stream.h"

#include <algorithm>
#include <cstring>

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

uLong write(voidpf, voidpf, const void*, uLong) {
  return 0;
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
