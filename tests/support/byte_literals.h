// SPDX-License-Identifier: Apache-2.0
// What the tests of single types write their records and expected bytes with.
#ifndef TESTS_SUPPORT_BYTE_LITERALS_H
#define TESTS_SUPPORT_BYTE_LITERALS_H

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

#include "tests/support/message.h"

namespace tests {

// Values that show where they are in a message: the low byte is the field's, the others show their order.
constexpr std::uint16_t half(std::uint8_t low) { return static_cast<std::uint16_t>(0x2200U | low); }
constexpr std::uint32_t word(std::uint8_t low) { return 0x44332200U | low; }
constexpr std::uint64_t quad(std::uint8_t low) { return 0x8877665544332200U | low; }

// Several pieces of hexadecimal text as one, for tables that occur in more than one message.
inline std::string join(std::initializer_list<std::string_view> pieces) {
    std::string text;
    for (const std::string_view piece : pieces) text.append(piece).append(" ");
    return text;
}

}  // namespace tests

#endif
