/// \file allocation_count.hpp  Counts what the test program takes from the heap.
#pragma once

#include <atomic>

namespace tolvenra::tests {

/// Calls of operator new so far, in all threads.
extern std::atomic<long> allocations;

}  // namespace tolvenra::tests
