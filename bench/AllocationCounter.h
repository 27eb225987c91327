// SPDX-License-Identifier: MIT
/* Counts heap allocations made by the benchmark process (the global
 * operator new is replaced in AllocationCounter.cpp), so that a benchmark can
 * report allocations per operation next to its time. */
#ifndef TETHERHOST_BENCH_ALLOCATIONCOUNTER_H
#define TETHERHOST_BENCH_ALLOCATIONCOUNTER_H

#include <cstdint>

namespace tetherhost::bench {

/** Allocations made through operator new since the process started. */
std::uint64_t allocationCount();

}  // namespace tetherhost::bench

#endif
