// SPDX-License-Identifier: Apache-2.0
// A unit's private runtime: its byte-swap flag, its hooks into the host and their one-time resolution,
// and the log lines of the codec.
//
// The library consists of fourteen units, a receive and a send unit for each module. Each owns one Unit
// and hands it to every generic function; units share nothing but code.
#ifndef KAPLO_RUNTIME_H
#define KAPLO_RUNTIME_H

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "runtime/zeb_osal_api.h"

namespace kaplo {

using AllocateHook = void* (*)(std::uint32_t size, std::uint32_t owner_code, const char* caller);
using FreeHook = void (*)(void* block, std::uint32_t owner_code, const char* caller);
using LogHook = decltype(&ZEB_OsalLogWrite);

inline constexpr std::uint32_t kReceiveOwner = 12;
inline constexpr std::uint16_t kSendOwner = 0x6200;

// What a unit uses where the host lacks a hook: the system's malloc and free, always as a pair.
void* fallback_allocate(std::uint32_t size, std::uint32_t owner_code, const char* caller);
void fallback_free(void* block, std::uint32_t owner_code, const char* caller);

// The locks guard the two resolutions only. Once a ready word is 1, the hooks that it announces are
// read without a lock and never change.
struct KaploUnitState {
    pthread_mutex_t memory_lock = PTHREAD_MUTEX_INITIALIZER;
    std::atomic<std::uint32_t> memory_ready = 0;
    AllocateHook cache_allocate = fallback_allocate;  // receive side
    FreeHook cache_free = fallback_free;
    KaploLogModule log_module = {"KAPLO", "KAPLO_TORINEX_SERIAL", kSendOwner};
    pthread_mutex_t log_lock = PTHREAD_MUTEX_INITIALIZER;
    LogHook log_write = nullptr;              // null: lines are dropped
    AllocateHook general_allocate = nullptr;  // send side
    FreeHook general_free = nullptr;
    std::atomic<std::uint32_t> log_ready = 0;
};

// Where the byte-swap flag starts: 0, or what a build for a big-endian host sets, whose peers are
// little-endian.
#ifdef KAPLO_BYTE_SWAP
inline constexpr std::uint32_t kByteSwap = KAPLO_BYTE_SWAP;
#else
inline constexpr std::uint32_t kByteSwap = 0;
#endif

struct Unit {
    KaploUnitState state;

    // Non-zero: values on the wire are byte-reversed. Nothing changes it after the start; volatile, so that
    // no compiler concludes from this that it is constant.
    volatile std::uint32_t byte_swap = 0;

    // The unit's start-up constructor, run while the library is loaded.
    void start_up() { byte_swap = kByteSwap; }
};

// Resolves a group of hooks at the unit's first call; afterwards one load and one branch. Every entry point
// calls the one that it needs, so no order of initialisation is ever relied on.
void resolve_memory_hooks(Unit& unit);
void resolve_log_hooks(Unit& unit);

inline bool has_memory_hooks(const Unit& unit) {
    return unit.state.memory_ready.load(std::memory_order_acquire) != 0;
}

// Makes the receive-side memory hooks valid; its first run resets the byte-swap flag.
inline void KaploMemHooksInit(Unit& unit) {
    if (!has_memory_hooks(unit)) resolve_memory_hooks(unit);
}

// Makes the log hook and the send-side memory hooks valid.
inline void KaploLogHooksInit(Unit& unit) {
    if (unit.state.log_ready.load(std::memory_order_acquire) == 0) resolve_log_hooks(unit);
}

inline void* allocate_received(const Unit& unit, std::uint32_t size, const char* caller) {
    return unit.state.cache_allocate(size, kReceiveOwner, caller);
}

inline void free_received(const Unit& unit, void* block, const char* caller) {
    unit.state.cache_free(block, kReceiveOwner, caller);
}

inline void* allocate_to_send(Unit& unit, std::uint32_t size, const char* caller) {
    KaploLogHooksInit(unit);
    return unit.state.general_allocate(size, unit.state.log_module.owner_code, caller);
}

inline void free_sent(Unit& unit, void* block, const char* caller) {
    KaploLogHooksInit(unit);
    unit.state.general_free(block, unit.state.log_module.owner_code, caller);
}

// The complaints. `function` names the operation that found the fault; `line` is where it was found.
void log_unpack_arguments(Unit& unit, const char* function, const void* buffer, std::uint32_t length,
                          const void* record, std::uint32_t line = __builtin_LINE());
void log_pack_arguments(Unit& unit, const char* function, const void* buffer, std::uint32_t capacity,
                        const void* record, std::uint32_t line = __builtin_LINE());
void log_table_offset(Unit& unit, const char* function, std::uint32_t table, std::uint32_t length,
                      std::uint32_t line = __builtin_LINE());
void log_vtable_offset(Unit& unit, const char* function, std::uint32_t table, std::uint32_t limit,
                       std::uint32_t line = __builtin_LINE());
void log_vtable_length(Unit& unit, const char* function, std::uint32_t vtable_length, std::uint32_t limit,
                       std::uint32_t line = __builtin_LINE());

// Two wordings are in use, which differ in the blanks before "size"; each type keeps its own.
enum class AllocationComplaint : bool { sixteen_blanks, one_blank };
void log_failed_allocation(Unit& unit, const char* function, AllocationComplaint wording, std::uint32_t size,
                           std::uint32_t line = __builtin_LINE());

// Ends the process, with a word on stderr: a message became longer than the size that it was given memory
// for.
[[noreturn]] void end_by_long_message(const char* caller);

}  // namespace kaplo

#endif
