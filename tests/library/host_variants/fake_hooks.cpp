// SPDX-License-Identifier: Apache-2.0
// The hooks of one variant of the host: those whose HAS_ macro is defined.
//
// Blocks come from an arena of this file: the system's free ends the process over one of them, and a block
// of the system's malloc is noticed by ZEB_OsalMemFree.
#include "tests/library/host_variants/fake_hooks.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace fake {

Journal journal;

#if defined(HAS_USE_FLAG)
const std::size_t use_flag_asked = 1;
#else
const std::size_t use_flag_asked = 0;
#endif
const bool host_allocates_received = EXPECT_RECEIVED_FROM_HOST;
const bool host_allocates_to_send = EXPECT_SENT_FROM_HOST;
const bool host_logs = EXPECT_LOG;

}  // namespace fake

#if defined(HAS_CACHE_ALLOCATE) || defined(HAS_GENERAL_ALLOCATE) || defined(HAS_FREE)
namespace {

alignas(std::max_align_t) std::array<std::uint8_t, std::size_t{1} << 20> arena;
[[maybe_unused]] std::size_t arena_used = 0;

// Blocks are never given out twice, and hold no zeros that the library might rely on.
[[maybe_unused]] void* allocate(const char* kind, std::uint32_t size, std::uint32_t owner_code,
                                const char* caller) {
    fake::journal.memory.push_back(std::string(kind) + " " + std::to_string(size) + " " +
                                   std::to_string(owner_code) + " " + caller);
    constexpr std::size_t alignment = alignof(std::max_align_t);
    const std::size_t rounded = (size + alignment) / alignment * alignment;
    if (rounded > arena.size() - arena_used) return nullptr;
    std::uint8_t* const block = arena.data() + arena_used;
    arena_used += rounded;
    std::memset(block, 0xEE, rounded);
    ++fake::journal.live_blocks;
    return block;
}

[[maybe_unused]] void release(const void* block, std::uint32_t owner_code, const char* caller) {
    fake::journal.memory.push_back("free " + std::to_string(owner_code) + " " + caller);
    const auto address = reinterpret_cast<std::uintptr_t>(block);
    const auto start = reinterpret_cast<std::uintptr_t>(arena.data());
    if (address < start || address - start >= arena.size()) {
        ++fake::journal.foreign_blocks;
    } else {
        --fake::journal.live_blocks;
    }
}

}  // namespace
#endif

extern "C" {

#if defined(HAS_USE_FLAG)
std::uint32_t ZEB_OsalMemUseFlagGet(std::uint32_t owner_code) {
    fake::journal.use_flag_arguments.push_back(owner_code);
    return HAS_USE_FLAG;
}
#endif

#if defined(HAS_CACHE_ALLOCATE)
void* ZEB_OsalMemCacheAlloc(std::uint32_t size, std::uint32_t owner_code, const char* caller) {
    return allocate("cache", size, owner_code, caller);
}
#endif

#if defined(HAS_GENERAL_ALLOCATE)
void* ZEB_OsalMemAlloc(std::uint32_t size, std::uint32_t owner_code, const char* caller) {
    return allocate("general", size, owner_code, caller);
}
#endif

#if defined(HAS_FREE)
void ZEB_OsalMemFree(void* block, std::uint32_t owner_code, const char* caller) {
    release(block, owner_code, caller);
}
#endif

#if defined(HAS_LOG)
void ZEB_OsalLogWrite(const KaploLogModule* module, std::uint32_t /*level*/, std::uint32_t category,
                      const char* /*file*/, std::uint32_t /*line*/, const char* function, const char* format,
                      ...) {
    std::array<char, 256> text = {};
    va_list values;
    va_start(values, format);
    std::vsnprintf(text.data(), text.size(), format, values);
    va_end(values);
    fake::journal.lines.push_back({module, category, std::string(function) + ": " + text.data()});
}
#endif

}  // extern "C"
