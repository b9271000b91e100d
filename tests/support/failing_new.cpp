#include "support/failing_new.hpp"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {
std::atomic<long> allocations_left{-1};
}

void* operator new(std::size_t size) {
  if (allocations_left.load(std::memory_order_relaxed) >= 0 && allocations_left.fetch_sub(1) <= 0) {
    allocations_left = 0;
    throw std::bad_alloc();
  }
  if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

void tolvenra::test::fail_after(long count) { allocations_left = count; }
