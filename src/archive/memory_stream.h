// Lets minizip read or write an archive in memory. The stream outlives the archive opened over it.
#pragma once

#include <ioapi.h>

#include <string>
#include <string_view>

namespace korvane::archive {

struct MemoryStream {
  std::string_view bytes;
  std::string* written = nullptr;  // for writing: what `bytes` then refers to
  size_t position = 0;
  bool overrun = false;  // more was asked for than there is, which is an error
};

zlib_filefunc64_def memoryFunctions(MemoryStream& stream);

}  // namespace korvane::archive
