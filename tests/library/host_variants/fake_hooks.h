// SPDX-License-Identifier: Apache-2.0
// A host that has some of the hooks: what they were called with, and what this variant of it is to see.
#ifndef TESTS_HOST_VARIANTS_FAKE_HOOKS_H
#define TESTS_HOST_VARIANTS_FAKE_HOOKS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "runtime/zeb_osal_api.h"

namespace fake {

// Calls of one kind as text, in order.
using Calls = std::vector<std::string>;

struct Line {
    const KaploLogModule* module;
    std::uint32_t category;
    std::string text;  // "function: the line"
};

// What the hooks that this host has were called with. A hook that it lacks leaves its list empty.
struct Journal {
    std::vector<std::uint32_t> use_flag_arguments;
    Calls memory;  // "cache 136 12 caller", "general 14 25088 caller", "free 12 caller"
    std::vector<Line> lines;
    std::size_t live_blocks = 0;
    std::size_t foreign_blocks = 0;  // released here, but allocated elsewhere
};
extern Journal journal;

// How often each unit that is used for the first time asks for the use flag.
extern const std::size_t use_flag_asked;

// Whether the library must use the host's functions, or else the system's and no log.
extern const bool host_allocates_received;
extern const bool host_allocates_to_send;
extern const bool host_logs;

}  // namespace fake

#endif
