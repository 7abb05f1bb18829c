// What the host gives up for its process before the agent library is loaded.
//
// It is the program's to do so and not the library's, which also runs in services of others.
//
// Linux: privileges that a program's file would add, for itself and the programs that it starts; the
// memory in core dumps, and for root's process core dumps altogether (a build with sanitizers looks
// into itself as a debugger does, and keeps that); descriptors beyond kMostDescriptors.
// Windows: images from other machines and from places of low integrity, libraries beside the program
// where the system has one of the name, extension points (hooks, legacy input methods), and invalid
// handles, which end the process. Data execution prevention is a program's of 64 bits for good. Child
// processes stay possible: the translator is one.
#pragma once

#include <cstdint>

namespace korvane::host {

inline constexpr uint64_t kMostDescriptors = 4096;

// What the system does not know or refuses is left out, with a message.
void guardProcess();

}  // namespace korvane::host
