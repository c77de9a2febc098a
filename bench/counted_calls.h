// SPDX-License-Identifier: Apache-2.0
// Calls under callgrind, which counts the instructions of the calls alone and stores them operation by
// operation.
#ifndef BENCH_COUNTED_CALLS_H
#define BENCH_COUNTED_CALLS_H

#include <valgrind/callgrind.h>

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>

#include "bench/operations.h"

namespace bench {

// Runs the operation and prints how often, and `name`, under which callgrind stores what it counted.
inline void count_calls(const std::string& name, const Operation& operation, std::size_t calls) {
    static Output output;
    std::memset(output.start(), 0, output.capacity());  // records are read into zeroed storage
    std::size_t next = 0;
    const auto run_next = [&] {
        operation.run(operation.samples[next], output.start(), output.capacity());
        if (++next == operation.samples.size()) next = 0;
    };
    CALLGRIND_ZERO_STATS;
    run_next();  // resolves the hooks
    next = 0;
    for (std::size_t i = 0; i < calls; ++i) {
        CALLGRIND_TOGGLE_COLLECT;
        run_next();
        CALLGRIND_TOGGLE_COLLECT;
    }
    CALLGRIND_DUMP_STATS_AT(name.c_str());
    std::printf("%zu %s\n", calls, name.c_str());
}

}  // namespace bench

#endif
