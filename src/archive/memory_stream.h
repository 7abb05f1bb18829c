// Lets minizip read an archive that lies in memory. The stream outlives the archive opened over it.
#pragma once

#include <ioapi.h>

#include <string_view>

namespace korvane::archive {

struct MemoryStream {
  std::string_view bytes;
  size_t position = 0;
  bool overrun = false;  // more was asked for than there is, which is an error
};

zlib_filefunc64_def memoryFunctions(MemoryStream& stream);

}  // namespace korvane::archive
