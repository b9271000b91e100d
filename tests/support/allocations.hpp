/// \file allocations.hpp  What a test program takes from the heap: counted, and refused on request.
#pragma once

#include <atomic>

namespace tolvenra::test {

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define TOLVENRA_HEAP_IS_THE_SANITIZERS
#endif
#endif

/// Whether operator new is ours; the thread sanitizer of clang brings its own. Tests that need it
/// skip.
#ifdef TOLVENRA_HEAP_IS_THE_SANITIZERS
inline constexpr bool heap_is_watched = false;
#else
inline constexpr bool heap_is_watched = true;
#endif

/// Calls of operator new so far, in all threads.
extern std::atomic<long> allocations;

/// From now on `count` allocations succeed and all later ones throw std::bad_alloc; below 0: none
/// does.
void fail_after(long count);
/// The same, but the next one alone throws.
void fail_once_after(long count);

}  // namespace tolvenra::test
