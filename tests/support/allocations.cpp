#include "support/allocations.hpp"

#include <cstdlib>
#include <new>

namespace tolvenra::test {

std::atomic<long> allocations{0};

namespace {
std::atomic<long> allocations_left{-1};  // below 0: no limit
std::atomic<bool> fails_once{false};
}  // namespace

void fail_after(long count) {
  fails_once = false;
  allocations_left = count;
}

void fail_once_after(long count) {
  fails_once = true;
  allocations_left = count;
}

#ifndef TOLVENRA_HEAP_IS_THE_SANITIZERS
namespace {

void* take(std::size_t size) {
  ++allocations;
  if (allocations_left.load(std::memory_order_relaxed) >= 0 && allocations_left.fetch_sub(1) <= 0) {
    allocations_left = fails_once ? -1 : 0;
    throw std::bad_alloc();
  }
  if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}

}  // namespace
#endif
}  // namespace tolvenra::test

#ifndef TOLVENRA_HEAP_IS_THE_SANITIZERS
void* operator new(std::size_t size) { return tolvenra::test::take(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return tolvenra::test::take(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
#endif
