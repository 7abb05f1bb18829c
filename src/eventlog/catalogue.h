// The texts of the numbered events: catalogue.txt, shipped beside the library as
// "korvane-events.txt".
//
// UTF-8, LF or CR LF; blank lines and lines that begin with '#' are ignored. Every other line is
// NUMBER TYPE TEXT with one blank between: a number from 1 to 99999 that no other line has, one of
// AINF (information), AWRN (warning), AERR (error), and a text of at most 1024 bytes in which %1 to
// %9 stand for the event's insertions and %% for a percent sign. At most 10,000 lines and 1 MiB.
//
// Parsing is a pure function over bytes; a file with one bad line gives nothing but the
// line's number.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace korvane::eventlog {

inline constexpr size_t kMaxCatalogueBytes = 1024 * 1024;

struct CatalogueEntry {
  std::string type;
  std::string text;
};

using Catalogue = std::map<int, CatalogueEntry>;

struct CatalogueError {
  size_t line = 0;  // from 1; 0: the whole file
  std::string text;

  // "line 12: no event type"
  std::string describe() const;
};

[[nodiscard]] std::optional<CatalogueError> parseCatalogue(std::string_view bytes, Catalogue& out);

// The text with its insertions put in; an insertion that is not there is empty.
std::string expandInsertions(std::string_view text, std::span<const std::string> insertions);

}  // namespace korvane::eventlog
