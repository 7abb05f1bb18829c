// What tells one log from any other, whatever its name, size or dates: its name and
// identity, and the bytes before a place in it. Some systems give a removed file's identity
// to the next one, hence the bytes.
//
// Threads: no shared state; a File's position is moved. Errors: none; what cannot be read
// makes no mark and matches none.
#pragma once

#include <cstdint>

#include "logs/next_logs.h"
#include "logs/pointer_account.h"
#include "platform/fwd.h"
#include "util/string.h"

namespace korvane {

// How many bytes before a place are looked at, at most.
inline constexpr int64_t kBytesCompared = 4096;

// A hash of the bytes before `position`.
uint64_t hashBefore(platform::File& file, int64_t position);
// A place in the file; an empty one when the file cannot be looked at.
NextLogs::Place placeIn(platform::File& file, int64_t position);

// What its first bytes before `position` tell of a log.
LogHead headOf(platform::File& file, int64_t position);

// The mark of a log that was read up to `end`, its size: "<size> <nanoseconds since 1970> <16 hex
// digits>", at most 58 characters. Empty when the file cannot be looked at or has grown.
STRING logMark(const STRING& name, platform::File& file, int64_t end);
// Whether the file of that name is the one that the mark was made of.
bool hasLogMark(platform::Files& files, const STRING& name, const STRING& mark);

}  // namespace korvane
