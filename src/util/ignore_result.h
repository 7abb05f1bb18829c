// Results that are dropped on purpose. What can fail is declared [[nodiscard]], so a result
// is either acted upon or passed to ignoreResult, with a comment that says why nothing is
// to be done about it.
//
//   // The file is of no use any more; what cannot be removed now goes with the next sweep.
//   ignoreResult(files.remove(path));
#pragma once

namespace korvane {

template <class Result>
constexpr void ignoreResult(const Result&) noexcept {}

}  // namespace korvane
