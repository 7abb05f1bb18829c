// KORVANE_EXPORT marks the classes and functions that the agent library exports.
//
// A compiler that knows the attribute dllexport writes libraries that name each export and
// each import; a program that uses the library defines KORVANE_OUTSIDE there
// (korvane-agent.h of the dev package does it everywhere). Elsewhere the class is visible,
// and the linker's map says what leaves the library.
#pragma once

#if !__has_attribute(dllexport)
#define KORVANE_EXPORT __attribute__((visibility("default")))
#elif defined(KORVANE_OUTSIDE)
#define KORVANE_EXPORT __attribute__((dllimport))
#else
#define KORVANE_EXPORT __attribute__((dllexport))
#endif
