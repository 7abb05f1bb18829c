// KORVANE_EXPORT marks the classes and functions that the agent library exports.
#pragma once

#if defined(_WIN32)
#define KORVANE_EXPORT __declspec(dllexport)
#else
#define KORVANE_EXPORT __attribute__((visibility("default")))
#endif
