// How an entry of an archive is begun, the same in memory and on disk: deflated, its name UTF-8.
// Without a date it has the day at which the format's dates begin, so that equal contents give equal
// archives.
#pragma once

#include <zip.h>

namespace korvane::archive {

inline constexpr uLong kFirstDate = 0x00210000;  // 1980-01-01, as the format writes dates

// minizip's code.
inline int beginEntry(zipFile zip, const char* name, uLong date = kFirstDate) {
  constexpr uLong namesAreUtf8 = 0x0800;
  constexpr int memoryLevel = 8;
  zip_fileinfo info{};
  info.dosDate = date;
  return zipOpenNewFileInZip4_64(zip, name, &info, nullptr, 0, nullptr, 0, nullptr, Z_DEFLATED,
                                 Z_DEFAULT_COMPRESSION, 0, -MAX_WBITS, memoryLevel,
                                 Z_DEFAULT_STRATEGY, nullptr, 0, 0, namesAreUtf8, 0);
}

}  // namespace korvane::archive
