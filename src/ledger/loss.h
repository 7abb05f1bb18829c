// One loss: lines of a log, or a stretch or file of unknown content, that nobody will get, with the
// reason. docs/ledger.md has the causes.
//
// Values without behaviour, used by any thread. Positions are bytes in the log, times milliseconds
// since 1970 UTC.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace korvane {

enum class LossCause : uint8_t {
  lineTooLong,     // delivered, but cut: the one cause that takes nothing out of the balance
  lineRejected,    // no event, or one of too many fields
  serverDropped,   // answered with 302
  serverRejected,  // answered with 600
  diskLimit,       // a log file was removed to keep to the limit of the disk
  logGone,         // a log disappeared before its end was read
  logReplaced,     // a log was shortened, or another file took its name
  logGap,          // a log that was named never appeared, or the place or a name was lost
  queueGivenUp,    // what waited to be sent was given up
};
inline constexpr size_t kLossCauses = 9;

// "line-rejected" and so on, as files and messages have it.
const char* nameOf(LossCause cause);
std::optional<LossCause> lossCauseNamed(std::string_view name);
// False for what is delivered all the same.
inline bool takesOut(LossCause cause) {
  return cause != LossCause::lineTooLong;
}

struct LossPlace {
  uint64_t position = 0;
  int64_t wallMs = 0;

  friend bool operator==(const LossPlace&, const LossPlace&) = default;
};

struct Loss {
  std::string stream = {};  // the agent's name of the log ("hidslog1rt"); empty: of no stream
  std::string log = {};     // full path, UTF-8; beyond kLongestLogName its end counts
  LossCause cause = LossCause::lineRejected;
  uint64_t count = 1;     // lines; of an uncounted loss, how many stretches or files there are
  bool counted = true;    // false: nobody knows how many lines there were
  LossPlace first = {};   // where the first lost line begins
  LossPlace last = {};    // behind the last lost byte; first's position again when not known
  uint64_t identity = 0;  // of the file (platform::FileInfo); 0 when not known

  friend bool operator==(const Loss&, const Loss&) = default;
};

inline constexpr size_t kLongestLogName = 512;

// How much a cause has taken: lines, and stretches or files with an unknown number of them.
struct LossSum {
  uint64_t lines = 0;
  uint64_t uncounted = 0;

  friend bool operator==(const LossSum&, const LossSum&) = default;
};
using LossSums = std::array<LossSum, kLossCauses>;

// The lines that are missing from what was read.
uint64_t linesLost(const LossSums& sums);
uint64_t uncountedLosses(const LossSums& sums);

}  // namespace korvane
