// SPDX-License-Identifier: Apache-2.0
// Resolution of the host's hooks, their fallbacks, and the codec's log lines.
#include "runtime/kaplo_runtime.h"

#include <dlfcn.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace kaplo {
namespace {

constexpr std::uint32_t kLogLevel = 2;
constexpr std::uint32_t kLayoutCategory = 22;
constexpr std::uint32_t kMemoryCategory = kReceiveOwner;

constexpr std::uint32_t kAttemptBits = 10;  // below the process: Linux has fewer than 2^22 of them
constexpr std::int64_t kPauseNanoseconds = 100'000;
constexpr std::int64_t kLongestWaitNanoseconds = 1'000'000'000;

std::int64_t nanoseconds_now() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

// The number of the attempt that the caller shall make; 0: the group is resolved. An attempt is given up that
// the parent of this process had begun, that this thread itself has left by an exception or a jump, or that
// others have waited for longer than a second.
std::uint32_t claim(Claim& claim, const std::atomic<std::uint32_t>& ready) {
    const std::uint32_t process = static_cast<std::uint32_t>(getpid()) << kAttemptBits;
    std::int64_t deadline = 0;
    for (;;) {
        if (ready.load(std::memory_order_acquire) != 0) return 0;
        std::uint32_t current = claim.attempt.load(std::memory_order_acquire);
        const bool is_free =
            current >> kAttemptBits != process >> kAttemptBits ||
            pthread_equal(claim.thread.load(std::memory_order_relaxed), pthread_self()) != 0 ||
            (deadline != 0 && nanoseconds_now() > deadline);
        const std::uint32_t mine = process | ((current + 1) & ((1U << kAttemptBits) - 1));
        if (is_free && claim.attempt.compare_exchange_strong(current, mine, std::memory_order_acq_rel)) {
            claim.thread.store(pthread_self(), std::memory_order_relaxed);
            return mine;
        }
        if (deadline == 0) deadline = nanoseconds_now() + kLongestWaitNanoseconds;
        const timespec pause = {0, kPauseNanoseconds};
        if (!is_free) nanosleep(&pause, nullptr);
    }
}

// Whether nobody has taken the resolution over meanwhile.
bool is_current(const Claim& claim, std::uint32_t attempt) {
    return claim.attempt.load(std::memory_order_acquire) == attempt;
}

template <class Hook>
Hook look_up(const char* name) {
    return reinterpret_cast<Hook>(dlsym(RTLD_DEFAULT, name));
}

// Hooks switch only as a pair: a block from the host never meets the system's free, nor the reverse.
void complete_pair(AllocateHook& allocate, FreeHook& free) {
    if (allocate == nullptr || free == nullptr) {
        allocate = fallback_allocate;
        free = fallback_free;
    }
}

const char* presence(const void* pointer) { return pointer == nullptr ? "null" : "nonNull"; }

// The host's log writer, or null. Each line below calls it with a literal format, which the compiler checks.
LogHook log_hook(Unit& unit) {
    KaploLogHooksInit(unit);
    return unit.state.log_write;
}

}  // namespace

void* fallback_allocate(std::uint32_t size, std::uint32_t /*owner_code*/, const char* /*caller*/) {
    return std::malloc(size);
}

void fallback_free(void* block, std::uint32_t /*owner_code*/, const char* /*caller*/) { std::free(block); }

void resolve_memory_hooks(Unit& unit) {
    KaploUnitState& state = unit.state;
    while (const std::uint32_t attempt = claim(state.memory_claim, state.memory_ready)) {
        const auto use_flag = look_up<decltype(&ZEB_OsalMemUseFlagGet)>("ZEB_OsalMemUseFlagGet");
        AllocateHook allocate = fallback_allocate;
        FreeHook free = fallback_free;
        if (use_flag != nullptr && use_flag(kReceiveOwner) == 1) {
            allocate = look_up<AllocateHook>("ZEB_OsalMemCacheAlloc");
            free = look_up<FreeHook>("ZEB_OsalMemFree");
        }
        complete_pair(allocate, free);
        if (!is_current(state.memory_claim, attempt)) continue;
        unit.byte_swap = kByteSwap;
        state.cache_allocate = allocate;
        state.cache_free = free;
        state.memory_ready.store(1, std::memory_order_release);
    }
}

void resolve_log_hooks(Unit& unit) {
    KaploUnitState& state = unit.state;
    while (const std::uint32_t attempt = claim(state.log_claim, state.log_ready)) {
        const LogHook write =
            state.log_write == nullptr ? look_up<LogHook>("ZEB_OsalLogWrite") : state.log_write;
        auto allocate = look_up<AllocateHook>("ZEB_OsalMemAlloc");
        auto free = look_up<FreeHook>("ZEB_OsalMemFree");
        complete_pair(allocate, free);
        if (!is_current(state.log_claim, attempt)) continue;
        state.log_write = write;
        state.general_allocate = allocate;
        state.general_free = free;
        state.log_ready.store(1, std::memory_order_release);
    }
}

void log_unpack_arguments(Unit& unit, const char* function, const void* buffer, std::uint32_t length,
                          const void* record, std::uint32_t line) {
    if (const LogHook write = log_hook(unit)) {
        write(&unit.state.log_module, kLogLevel, kLayoutCategory, "", line, function,
              "[KAPLO]:Param invalid(%s, %d, %s)", presence(buffer), static_cast<std::int32_t>(length),
              presence(record));
    }
}

void log_pack_arguments(Unit& unit, const char* function, const void* buffer, std::uint32_t capacity,
                        const void* record, std::uint32_t line) {
    if (const LogHook write = log_hook(unit)) {
        write(&unit.state.log_module, kLogLevel, kLayoutCategory, "", line, function,
              "[KAPLO]:Param invalid(%s, %u, %s)", presence(buffer), capacity, presence(record));
    }
}

void log_table_offset(Unit& unit, const char* function, std::uint32_t table, std::uint32_t length,
                      std::uint32_t line) {
    if (const LogHook write = log_hook(unit)) {
        write(&unit.state.log_module, kLogLevel, kLayoutCategory, "", line, function,
              "[KAPLO]:Table offset(%u) is out of range(4 - %u)", table, length);
    }
}

void log_vtable_offset(Unit& unit, const char* function, std::uint32_t table, std::uint32_t limit,
                       std::uint32_t line) {
    if (const LogHook write = log_hook(unit)) {
        write(&unit.state.log_module, kLogLevel, kLayoutCategory, "", line, function,
              "[KAPLO]:Vtable offset(%u) is out of range(4 - %u)", table, limit);
    }
}

void log_vtable_length(Unit& unit, const char* function, std::uint32_t vtable_length, std::uint32_t room,
                       std::uint32_t line) {
    if (const LogHook write = log_hook(unit)) {
        write(&unit.state.log_module, kLogLevel, kLayoutCategory, "", line, function,
              "[KAPLO]:Vtable Len(%u) is out of range(0 - %u)", vtable_length, room);
    }
}

void log_failed_allocation(Unit& unit, const char* function, AllocationComplaint wording, std::uint32_t size,
                           std::uint32_t line) {
    if (const LogHook write = log_hook(unit)) {
        write(&unit.state.log_module, kLogLevel, kMemoryCategory, "", line, function,
              wording == AllocationComplaint::one_blank
                  ? "[KAPLO]:Malloc unpack data unsuccess, size(%u)"
                  : "[KAPLO]:Malloc unpack data unsuccess,                size(%u)",
              size);
    }
}

void end_by_long_message(const char* caller) {
    static_cast<void>(
        std::fprintf(stderr, "%s: the message is longer than its size; the process ends\n", caller));
    std::abort();
}

}  // namespace kaplo
