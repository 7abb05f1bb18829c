// Path texts and whole-file helpers over Files. Paths are UTF-8.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>

#include "platform/fwd.h"

namespace korvane::platform {

// The parts joined by the separator; empty parts are left out, no separator is doubled.
std::string joinPath(const Files& files, std::initializer_list<std::string_view> parts);

// What stands before and behind the last separator ("/" and "\" both count).
std::string directoryOf(std::string_view path);
std::string fileNameOf(std::string_view path);

// True for a path with a drive, a root or a network prefix.
bool isAbsolutePath(std::string_view path);

bool fileExists(Files& files, const std::string& path);

// Reads the whole file. EFBIG, and nothing read, when it holds more than maxBytes.
[[nodiscard]] int readWholeFile(Files& files, const std::string& path, uint64_t maxBytes,
                                std::string& out);

// Writes `path` so that a reader, or a machine that loses power at any instant, sees the old
// content or the new one, never a part: a new file beside it ("<path>.new-<fresh name>"), flushed,
// then put in its place, then the directory flushed.
[[nodiscard]] int writeFileAtomically(Files& files, const std::string& path,
                                      std::string_view bytes);

// The name of the file that "agent.ini.new-0123456789ab" was to become; empty for any other name.
std::string_view unfinishedTarget(std::string_view name);
// Removes what writes that a crash cut off have left in the directory, of the files that `concerns`
// names and nobody is writing now: at most kMostUnfinished, the others the next time.
inline constexpr size_t kMostUnfinished = 100;
void removeUnfinished(Files& files, const std::string& directory,
                      const std::function<bool(std::string_view)>& concerns);
// Twelve letters and digits made of these bits.
std::string nameOfBits(uint64_t bits);

// Removes a directory with all that lies in it, or a file; no error when it is not there. Goes on
// after a failure and gives the first one.
[[nodiscard]] int removeTree(Files& files, const std::string& path);
// The same, except for the directory itself, which stays.
[[nodiscard]] int emptyDirectory(Files& files, const std::string& directory);

}  // namespace korvane::platform
