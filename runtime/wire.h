// SPDX-License-Identifier: Apache-2.0
// Bytes of the wire: unaligned loads and stores in either byte order, and the format's constants.
#ifndef KAPLO_WIRE_H
#define KAPLO_WIRE_H

#include <array>
#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace kaplo {

// Values travel in the host's byte order, or reversed where the unit's byte-swap flag is set.
enum class ByteOrder : bool { host, reversed };

inline constexpr std::uint32_t kReferenceBytes = 4;     // root reference, references, soffset alike
inline constexpr std::uint32_t kCountBytes = 4;         // element count at the head of a vector
inline constexpr std::uint32_t kVtableHeaderBytes = 4;  // vtable length, table length
inline constexpr std::uint32_t kSlotBytes = 2;
inline constexpr std::uint32_t kRootTableAt = 4;  // nothing lies before the end of the root reference
inline constexpr std::uint32_t kShortestBuffer = 4;
inline constexpr std::uint32_t kLongestBuffer = 0x7FFFFFFF;

inline constexpr std::uint8_t byte_reversed(std::uint8_t value) { return value; }
inline constexpr std::uint16_t byte_reversed(std::uint16_t value) { return __builtin_bswap16(value); }
inline constexpr std::uint32_t byte_reversed(std::uint32_t value) { return __builtin_bswap32(value); }
inline constexpr std::uint64_t byte_reversed(std::uint64_t value) { return __builtin_bswap64(value); }

template <ByteOrder order, std::unsigned_integral T>
constexpr T ordered(T value) {
    return order == ByteOrder::host ? value : byte_reversed(value);
}

// Whether elements have the same bytes on the wire as in memory.
template <class T, ByteOrder order>
inline constexpr bool is_copied = sizeof(T) == 1 || order == ByteOrder::host;

template <ByteOrder order, std::unsigned_integral T>
constexpr T load(const std::uint8_t* at) {
    std::array<std::uint8_t, sizeof(T)> bytes = {};
    if (std::is_constant_evaluated()) {
        for (std::size_t i = 0; i < sizeof(T); ++i) bytes[i] = at[i];
    } else {
        std::memcpy(bytes.data(), at, sizeof(T));
    }
    return ordered<order>(std::bit_cast<T>(bytes));
}

template <ByteOrder order, std::unsigned_integral T>
constexpr void store(std::uint8_t* at, T value) {
    const auto bytes = std::bit_cast<std::array<std::uint8_t, sizeof(T)>>(ordered<order>(value));
    if (std::is_constant_evaluated()) {
        for (std::size_t i = 0; i < sizeof(T); ++i) at[i] = bytes[i];
    } else {
        std::memcpy(at, bytes.data(), sizeof(T));
    }
}

// All ones if the condition holds, else 0: to choose without a branch. What the compiler cannot see, it
// cannot turn into a branch again.
constexpr std::size_t mask_if(bool condition) {
    std::size_t mask = std::size_t{0} - static_cast<std::size_t>(condition);
    if (!std::is_constant_evaluated()) asm("" : "+r"(mask));
    return mask;
}

// Adds 1 if the condition holds. Comparisons are never added up in view of the compiler: g++ 12 makes vectors
// of such sums, whose lanes are 0 and -1, and gives some of them the wrong sign.
constexpr void count_if(bool condition, std::uint64_t& count) {
    if (!std::is_constant_evaluated()) asm("" : "+r"(count));
    count += static_cast<std::uint64_t>(condition);
}

// Numbers of a vtable as they stand in memory. A reversing writer keeps only the low byte of field offsets
// and of the lengths of tables without vectors; all its other numbers it reverses in full. Peers that
// reverse do the same, and without reversal it does not show.
template <ByteOrder order>
constexpr std::uint16_t in_full(std::uint32_t value) {
    return ordered<order>(static_cast<std::uint16_t>(value));
}

template <ByteOrder order>
constexpr std::uint16_t in_short(std::uint32_t value) {
    return order == ByteOrder::host ? in_full<order>(value) : static_cast<std::uint16_t>((value & 0xFF) << 8);
}

// Where a field's slot stands in its vtable.
constexpr std::uint32_t slot_in_vtable(std::uint32_t id) { return kVtableHeaderBytes + kSlotBytes * id; }

constexpr std::uint32_t round_up(std::uint32_t value, std::uint32_t multiple) {
    return (value + multiple - 1) / multiple * multiple;
}

}  // namespace kaplo

#endif
