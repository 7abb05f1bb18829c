// How a change of several settings at once ended.
#pragma once

namespace korvane {

// refused: a key is not known or its value not of its type. locked: another process has held the
// lock file for a second. notWritten: the file cannot be replaced.
enum class ChangeAll { done, refused, locked, notWritten };

}  // namespace korvane
