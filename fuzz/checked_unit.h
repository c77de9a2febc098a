// SPDX-License-Identifier: Apache-2.0
// A unit whose hooks account for every block and keep every log line, and the comparison of its unpack with
// the plain reader's.
#ifndef FUZZ_CHECKED_UNIT_H
#define FUZZ_CHECKED_UNIT_H

#include <algorithm>
#include <array>
#include <bit>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/supply.h"
#include "runtime/pack.h"
#include "runtime/unpack.h"
#include "tests/support/plain_reader.h"
#include "tests/support/same_record.h"

namespace fuzz {

// What the hooks of all checked units have seen since the last clear().
struct Account {
    std::vector<std::pair<std::uint32_t, std::string>> allocations;  // size, caller
    std::vector<std::string> releases;                               // callers
    std::vector<std::string> log;                                    // "function: text"
    std::optional<std::size_t> failing_allocation;
    std::size_t live_blocks = 0;

    void clear() {  // keeps the capacities: sweeps clear it a million times a second
        allocations.clear();
        releases.clear();
        log.clear();
        failing_allocation.reset();
        live_blocks = 0;
    }
};

inline Account account;

inline void* allocate(std::uint32_t size, std::uint32_t /*owner_code*/, const char* caller) {
    account.allocations.emplace_back(size, caller);
    if (account.allocations.size() - 1 == account.failing_allocation) return nullptr;
    void* const block = std::malloc(size);
    if (block == nullptr) return nullptr;
    std::memset(block, 0xA5, size);
    ++account.live_blocks;
    return block;
}

inline void release(void* block, std::uint32_t /*owner_code*/, const char* caller) {
    account.releases.emplace_back(caller);
    if (block != nullptr) --account.live_blocks;
    std::free(block);
}

[[gnu::format(printf, 7, 8)]] inline void log(const KaploLogModule* /*module*/, std::uint32_t /*level*/,
                                              std::uint32_t /*category*/, const char* /*file*/,
                                              std::uint32_t /*line*/, const char* function,
                                              const char* format, ...) {
    std::array<char, 256> text;
    const int prefix = std::snprintf(text.data(), text.size(), "%s: ", function);
    const std::size_t used = std::min(static_cast<std::size_t>(std::max(prefix, 0)), text.size() - 1);
    va_list values;
    va_start(values, format);
    static_cast<void>(std::vsnprintf(text.data() + used, text.size() - used, format, values));
    va_end(values);
    account.log.emplace_back(text.data());
}

// Hooks are resolved from the start. The wire has the order asked for, whatever the host's.
class CheckedUnit : public kaplo::Unit {
  public:
    explicit CheckedUnit(std::endian order) {
        byte_swap = order == std::endian::native ? 0 : 1;
        state.cache_allocate = allocate;
        state.cache_free = release;
        state.general_allocate = allocate;
        state.general_free = release;
        state.log_write = log;
        state.memory_ready = 1;
        state.log_ready = 1;
    }
};

constexpr std::uint64_t quarter(std::uint64_t number) { return (number + 3) / 4; }

// An unpack asks for at most this many bytes of memory for each byte received: in a vector of records four
// bytes can refer to one, in a vector of numbers each byte can be one, and vectors may share their bytes.
template <class Record>
inline constexpr std::uint64_t most_heap_per_byte = [] {
    std::uint64_t most = 0;
    kaplo::each_field<Record>([&]<class F, std::uint32_t id> {
        if constexpr (F::kind == kaplo::Kind::scalar_vector) ++most;
        if constexpr (F::kind == kaplo::Kind::table_vector) most += quarter(sizeof(typename F::Element));
    });
    return most;
}();

// Work, counted as fields and elements looked at: for a table and what it contains, and for each byte
// received.
template <class Record>
inline constexpr std::uint64_t most_steps = [] {
    std::uint64_t most = 0;
    kaplo::each_field<Record>([&]<class F, std::uint32_t id> {
        ++most;
        if constexpr (F::kind == kaplo::Kind::fixed_array) most += std::extent_v<typename F::Member>;
        if constexpr (F::kind == kaplo::Kind::nested_table) most += most_steps<typename F::Element>;
    });
    return most;
}();
template <class Record>
inline constexpr std::uint64_t most_steps_per_byte = [] {
    std::uint64_t most = 0;
    kaplo::each_field<Record>([&]<class F, std::uint32_t id> {
        if constexpr (F::kind == kaplo::Kind::scalar_vector) ++most;
        if constexpr (F::kind == kaplo::Kind::table_vector) most += quarter(most_steps<typename F::Element>);
    });
    return most;
}();

// Unpacks the bytes, with the library and with the plain reader, and compares the two, and checks the
// promises made to a host. Returns whether nothing went wrong in the bytes.
template <class Record>
bool unpack_and_compare(const std::uint8_t* bytes, std::uint32_t length, std::endian order,
                        std::optional<std::size_t> failing_allocation = std::nullopt) {
    constexpr std::uint8_t before = kaplo::owns_memory<Record> ? 0 : 0x5A;
    CheckedUnit unit(order);
    account.clear();
    account.failing_allocation = failing_allocation;
    Record record;
    std::memset(static_cast<void*>(&record), before, sizeof record);
    promise(kaplo::unpack(unit, bytes, length, &record) == sizeof record, "unpack returns the record's size");

    Record expected;
    std::memset(static_cast<void*>(&expected), before, sizeof expected);
    tests::PlainReader reader(bytes, length, order, failing_allocation);
    reader.unpack(&expected);
    tests::Difference difference;
    if (!tests::same(record, expected, difference)) broken(difference.result(false).message());
    promise(account.log == reader.log, "the log lines are the plain reader's");
    promise(account.allocations == reader.allocations, "the allocations are the plain reader's");
    promise(account.releases == reader.releases, "the releases are the plain reader's");
    promise(reader.steps <= most_steps<Record> + most_steps_per_byte<Record> * length,
            "the work is linear in the length");
    std::uint64_t heap = 0;
    for (const auto& [size, caller] : account.allocations) heap += size;
    promise(heap <= most_heap_per_byte<Record> * length, "the memory asked for is what the length allows");

    // What unpack left can be packed and freed.
    std::vector<std::uint8_t> packed(kaplo::message_bytes(&record));
    auto packed_length = static_cast<std::uint32_t>(packed.size());
    promise(kaplo::pack(unit, &record, packed.data(), &packed_length) == 0,
            "what was unpacked can be packed");
    const bool clean = account.log.empty() && account.releases.empty();
    kaplo::free_unpacked(unit, &record);
    promise(account.live_blocks == 0, "every block is released");
    kaplo::free_unpacked(unit, &record);
    promise(account.live_blocks == 0, "a second free is harmless");
    return clean;
}

template <class Record>
bool unpack_and_compare(const std::vector<std::uint8_t>& bytes, std::endian order,
                        std::optional<std::size_t> failing_allocation = std::nullopt) {
    return unpack_and_compare<Record>(bytes.data(), static_cast<std::uint32_t>(bytes.size()), order,
                                      failing_allocation);
}

}  // namespace fuzz

#endif
