/// \file allocations.hpp  What a test program takes from the heap: counted, and refused on request.
#pragma once

#include <atomic>

namespace tolvenra::test {

/// Calls of operator new so far, in all threads.
extern std::atomic<long> allocations;

/// From now on `count` allocations succeed and all later ones throw std::bad_alloc; below 0: none
/// does.
void fail_after(long count);

}  // namespace tolvenra::test
