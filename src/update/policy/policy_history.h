// The history of the translations: a line of comma-separated values for each attempt, in
// the folder "history".
//
// A file beyond kMaxHistoryBytes is set aside as "....1.csv", whose former content goes; so there
// are at most two of a kind. A line that a crash cut off ends where it was cut.
// docs/file-formats.md has the columns.
//
// Lifetime and threads: belongs to the owner of the policy; the files outlive it.
// Errors: what cannot be written switches the history off until initialize(), with a trace line.
//
//   PolicyHistory history(files);
//   history.initialize();
//   history.add(PolicyHistory::ips, {.plusFile = plus, .resultCode = 0});
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/fwd.h"
#include "util/string.h"

namespace korvane {

struct HistoryRecord {
  STRING time;  // when the attempt began, in UTC
  STRING plusFile;
  STRING name;  // of the policy, as far as known
  STRING version;
  int resultCode = 0;  // the translator's, or 1000 plus the driver interface's
  STRING errorText;
  STRING minusFile;
  STRING itemsFile;
  int64_t durationMs = 0;

  friend bool operator==(const HistoryRecord&, const HistoryRecord&) = default;
};

class PolicyHistory {
 public:
  static constexpr char ips[] = "history_ips.csv";
  static constexpr char ids[] = "history_ids.csv";
  static constexpr uint64_t kMaxHistoryBytes = 1 << 20;
  static constexpr size_t kMaxErrorUnits = 4096;  // an error's text is cut there

  explicit PolicyHistory(platform::Files& files) : _files(files) {}

  [[nodiscard]] bool initialize();
  bool enabled() const { return _enabled; }
  void add(const char* file, const HistoryRecord& record);

 private:
  void begin(const std::string& path);
  void append(const std::string& path, const std::string& line);
  void disable(const char* context, int error, const std::string& message);

  platform::Files& _files;
  bool _enabled = false;
};

// A record as a line with its line feed, and the fields of a line: a quoted field is between double
// quotes, two of them in it are one; blanks count.
std::string historyLine(const HistoryRecord& record);
std::vector<std::string> historyFields(std::string_view line);
// False for a line that is not a record, the heading and a cut one included.
[[nodiscard]] bool parseHistoryLine(std::string_view line, HistoryRecord& out);

}  // namespace korvane
