#include "logs/log_mark.h"

#include <algorithm>
#include <memory>
#include <string>

#include "logs/text_hash.h"
#include "platform/files.h"

namespace korvane {

uint64_t hashBefore(platform::File& file, int64_t position) {
  const int64_t begin = std::max<int64_t>(position - kBytesCompared, 0);
  std::string bytes(static_cast<size_t>(position - begin), '\0');
  size_t got = 0;
  // What cannot be read has the hash of nothing, which is not a log's.
  if (file.seek(begin) != 0 || file.read(bytes.data(), bytes.size(), got) != 0) got = 0;
  bytes.resize(got);
  return textHash(bytes);
}

LogHead headOf(platform::File& file, int64_t position) {
  platform::FileInfo info;
  std::string bytes(static_cast<size_t>(std::clamp<int64_t>(position, 0, LogHead::kMaxBytes)),
                    '\0');
  size_t got = 0;
  if (file.info(info) != 0 || file.seek(0) != 0 || file.read(bytes.data(), bytes.size(), got) != 0)
    return {};
  bytes.resize(got);
  return {info.identity, textHash(bytes), got};
}

NextLogs::Place placeIn(platform::File& file, int64_t position) {
  platform::FileInfo info;
  if (file.info(info) != 0) return {};
  return {position, info.size, info.identity, hashBefore(file, position)};
}

STRING logMark(const STRING& name, platform::File& file, int64_t end) {
  platform::FileInfo info;
  if (file.info(info) != 0 || static_cast<int64_t>(info.size) != end) return {};
  const std::string which =
      name.toUtf8() + "\n" + std::to_string(info.identity) + " " + hexText(hashBefore(file, end));
  return std::to_string(info.size) + " " + std::to_string(info.modifiedNs) + " " +
         hexText(textHash(which));
}

bool hasLogMark(platform::Files& files, const STRING& name, const STRING& mark) {
  platform::FileInfo info;
  const std::string path = name.toUtf8();
  if (mark.empty() || name.empty() || files.info(path, info) != 0) return false;
  if (!mark.toUtf8().starts_with(std::to_string(info.size) + " ")) return false;
  std::unique_ptr<platform::File> file;
  return files.open(path, platform::OpenMode::read, file) == 0 &&
         logMark(name, *file, static_cast<int64_t>(info.size)) == mark;
}

}  // namespace korvane
