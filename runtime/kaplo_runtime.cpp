// SPDX-License-Identifier: Apache-2.0
// Resolution of the host's hooks, their fallbacks, and the codec's log lines.
#include "runtime/kaplo_runtime.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

namespace kaplo {
namespace {

constexpr std::uint32_t kLogLevel = 2;
constexpr std::uint32_t kLayoutCategory = 22;
constexpr std::uint32_t kMemoryCategory = kReceiveOwner;

class Locked {
  public:
    explicit Locked(pthread_mutex_t& lock) : lock_(lock) { pthread_mutex_lock(&lock_); }
    ~Locked() { pthread_mutex_unlock(&lock_); }
    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;

  private:
    pthread_mutex_t& lock_;
};

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
    const Locked locked(state.memory_lock);
    if (state.memory_ready.load(std::memory_order_relaxed) != 0) return;
    unit.byte_swap = kByteSwap;
    const auto use_flag = look_up<decltype(&ZEB_OsalMemUseFlagGet)>("ZEB_OsalMemUseFlagGet");
    if (use_flag != nullptr && use_flag(kReceiveOwner) == 1) {
        state.cache_allocate = look_up<AllocateHook>("ZEB_OsalMemCacheAlloc");
        state.cache_free = look_up<FreeHook>("ZEB_OsalMemFree");
    }
    complete_pair(state.cache_allocate, state.cache_free);
    state.memory_ready.store(1, std::memory_order_release);
}

void resolve_log_hooks(Unit& unit) {
    KaploUnitState& state = unit.state;
    const Locked locked(state.log_lock);
    if (state.log_ready.load(std::memory_order_relaxed) != 0) return;
    if (state.log_write == nullptr) state.log_write = look_up<LogHook>("ZEB_OsalLogWrite");
    state.general_allocate = look_up<AllocateHook>("ZEB_OsalMemAlloc");
    state.general_free = look_up<FreeHook>("ZEB_OsalMemFree");
    complete_pair(state.general_allocate, state.general_free);
    state.log_ready.store(1, std::memory_order_release);
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

void log_vtable_length(Unit& unit, const char* function, std::uint32_t vtable_length, std::uint32_t limit,
                       std::uint32_t line) {
    if (const LogHook write = log_hook(unit)) {
        write(&unit.state.log_module, kLogLevel, kLayoutCategory, "", line, function,
              "[KAPLO]:Vtable Len(%u) is out of range(0 - %u)", vtable_length, limit);
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
