// "swupdate.results": what is known of a software update, one "name=value" per line.
//
// Written in UTF-16LE with a byte-order mark, or in UTF-8; read in either, whatever the
// agent would write. Names may repeat; the last one counts, so that an installer only has
// to add lines. Thread-safe.
#pragma once

#include <string>
#include <string_view>

#include "util/property_list.h"

namespace korvane {

inline constexpr char kUpdateResultsFile[] = "swupdate.results";

std::string updateResultsText(const PropertyList& pairs, bool unicode);
PropertyList parseUpdateResults(std::string_view bytes);

}  // namespace korvane
