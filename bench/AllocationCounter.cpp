// SPDX-License-Identifier: MIT
/* Replacement global operator new/delete that count allocations. */
#include "AllocationCounter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {
std::atomic<std::uint64_t> allocations{0};

void* allocate(std::size_t size) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
    throw std::bad_alloc();
}
}  // namespace

namespace tetherhost::bench {
std::uint64_t allocationCount() { return allocations.load(std::memory_order_relaxed); }
}  // namespace tetherhost::bench

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
