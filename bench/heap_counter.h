// SPDX-License-Identifier: Apache-2.0
// How often the process calls the heap, where heap_counter.cpp is preloaded.
#ifndef BENCH_HEAP_COUNTER_H
#define BENCH_HEAP_COUNTER_H

#include <cstdint>

namespace bench {

// The name, for dlsym, of a function of this type: how often blocks were asked for or given back.
using HeapCalls = std::uint64_t (*)();
inline constexpr char kHeapCallsName[] = "bench_heap_calls";

}  // namespace bench

#endif
