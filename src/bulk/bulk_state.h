// What bulk log transfer knows over restarts: the logs with what of them was sent, and the bundle
// under way. Kept in "bulk.state" (docs/bulk-logs.md has the lines).
//
// Value types and functions; nothing is kept. Threads: one. Errors: errno values; EBADMSG for a file
// that is not a whole state, EFBIG for one that is too large.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "bulk/bulk_manifest.h"
#include "platform/fwd.h"

namespace korvane::bulk {

inline constexpr size_t kMaxStateBytes = 4u << 20;
inline constexpr size_t kMaxLogs = 4096;
inline constexpr uint32_t kMaxHead = 256;
inline constexpr size_t kHeadDigits = 16;

struct LogRecord {
  Kind kind = Kind::agent;
  std::string id;
  uint64_t identity = 0;  // of the file
  uint64_t position = 0;  // all before it is sent
  uint64_t size = 0;
  int64_t modifiedNs = 0;
  uint32_t headBytes = 0;  // of its beginning, at most kMaxHead
  std::string head;        // their SHA-256, kHeadDigits of it
  std::string path;

  bool isSent() const { return position == size; }
  int64_t modifiedMs() const { return modifiedNs / 1'000'000; }
  friend bool operator==(const LogRecord&, const LogRecord&) = default;
};

struct Bundle {
  std::string name;
  uint64_t size = 0;
  std::string digest;
  std::vector<Part> parts;

  friend bool operator==(const Bundle&, const Bundle&) = default;
};

struct State {
  uint64_t sentBundles = 0;
  uint64_t sentBytes = 0;
  std::optional<Bundle> bundle;
  std::vector<LogRecord> logs;

  friend bool operator==(const State&, const State&) = default;
};

std::string stateText(const State& state);
// False, and `out` as it was, for a text that is not a whole state.
[[nodiscard]] bool parseState(std::string_view text, State& out);

// ENOENT: nothing was ever sent.
[[nodiscard]] int readState(platform::Files& files, const std::string& path, State& out);
// Durable when it returns 0.
[[nodiscard]] int writeState(platform::Files& files, const std::string& path, const State& state);

}  // namespace korvane::bulk
