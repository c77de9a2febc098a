// SPDX-License-Identifier: Apache-2.0
// Expected bytes as text: one string literal a field, with a comment that names it.
#ifndef TESTS_SUPPORT_BYTES_H
#define TESTS_SUPPORT_BYTES_H

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/give_up.h"

namespace tests {

using Bytes = std::vector<std::uint8_t>;

// Reads pairs of hexadecimal digits; blanks are free. Throws on anything else.
inline Bytes hex(std::string_view text) {
    constexpr std::string_view digits = "0123456789abcdef";
    Bytes bytes;
    bool high = true;
    for (const char character : text) {
        if (character == ' ') continue;
        const std::size_t digit = digits.find(character);
        if (digit == std::string_view::npos) give_up("not hexadecimal: " + std::string(text));
        if (high) {
            bytes.push_back(static_cast<std::uint8_t>(digit << 4));
        } else {
            bytes.back() = static_cast<std::uint8_t>(bytes.back() | digit);
        }
        high = !high;
    }
    if (!high) give_up("an odd number of digits: " + std::string(text));
    return bytes;
}

// Numbers in one of the byte orders, from text with their highest digits first: "10 0203" is a byte and a
// 16-bit number. Throws where a group of digits is no number of 1, 2, 4 or 8 bytes.
inline Bytes numbers_in(std::endian order, std::string_view text) {
    Bytes bytes;
    while (!text.empty()) {
        const std::string_view group = text.substr(0, text.find(' '));
        const Bytes number = hex(group);
        if (!std::has_single_bit(number.size()) || number.size() > 8)
            give_up("not a number: " + std::string(group));
        if (order == std::endian::big) {
            bytes.insert(bytes.end(), number.begin(), number.end());
        } else {
            bytes.insert(bytes.end(), number.rbegin(), number.rend());
        }
        text.remove_prefix(std::min(text.size(), group.size() + 1));
    }
    return bytes;
}

inline std::string to_hex(const Bytes& bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
        text += ' ';
    }
    return text;
}

// Compares byte by byte; the message shows the first difference and both sides.
inline testing::AssertionResult same_bytes(const Bytes& actual, const Bytes& expected) {
    if (actual == expected) return testing::AssertionSuccess();
    std::size_t at = 0;
    while (at < actual.size() && at < expected.size() && actual[at] == expected[at]) ++at;
    return testing::AssertionFailure() << "first difference at byte " << at << "\n  actual (" << actual.size()
                                       << " bytes):   " << to_hex(actual) << "\n  expected ("
                                       << expected.size() << " bytes): " << to_hex(expected);
}

#define EXPECT_BYTES(actual, expected_hex) \
    EXPECT_TRUE(::tests::same_bytes((actual), ::tests::hex(expected_hex)))

// Numbers put together little-endian, for messages that a test builds or damages.
inline void put16(Bytes& bytes, std::size_t at, std::uint16_t value) {
    for (std::size_t i = 0; i < 2; ++i) bytes.at(at + i) = static_cast<std::uint8_t>(value >> (8 * i));
}
inline void put32(Bytes& bytes, std::size_t at, std::uint32_t value) {
    for (std::size_t i = 0; i < 4; ++i) bytes.at(at + i) = static_cast<std::uint8_t>(value >> (8 * i));
}
inline std::uint16_t get16(const Bytes& bytes, std::size_t at) {
    return static_cast<std::uint16_t>(bytes.at(at) | bytes.at(at + 1) << 8);
}
inline std::uint32_t get32(const Bytes& bytes, std::size_t at) {
    return get16(bytes, at) | static_cast<std::uint32_t>(get16(bytes, at + 2)) << 16;
}

}  // namespace tests

#endif
