#include "allocation_count.hpp"

#include <cstdlib>
#include <new>

namespace tolvenra::tests {
std::atomic<long> allocations{0};
}

void* operator new(std::size_t size) {
  ++tolvenra::tests::allocations;
  if (void* const memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
