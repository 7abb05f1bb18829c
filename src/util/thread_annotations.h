// Clang's thread-safety annotations, empty elsewhere. Every member that a mutex guards carries
// GUARDED_BY; the clang build makes a violation an error.
#pragma once

#if defined(__clang__)
#define KORVANE_ANNOTATION(x) __attribute__((x))
#else
#define KORVANE_ANNOTATION(x)
#endif

#define CAPABILITY(x) KORVANE_ANNOTATION(capability(x))
#define SCOPED_CAPABILITY KORVANE_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) KORVANE_ANNOTATION(guarded_by(x))
#define PT_GUARDED_BY(x) KORVANE_ANNOTATION(pt_guarded_by(x))
#define RETURN_CAPABILITY(x) KORVANE_ANNOTATION(lock_returned(x))
#define ACQUIRE(...) KORVANE_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) KORVANE_ANNOTATION(release_capability(__VA_ARGS__))
#define REQUIRES(...) KORVANE_ANNOTATION(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) KORVANE_ANNOTATION(locks_excluded(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS KORVANE_ANNOTATION(no_thread_safety_analysis)
