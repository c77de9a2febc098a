// SPDX-License-Identifier: Apache-2.0
// The text forms of byte fields: hexadecimal digits, hardware addresses, IPv6 addresses.
#ifndef TOOL_RECORD_TEXT_H
#define TOOL_RECORD_TEXT_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace tool {

inline constexpr std::size_t kHardwareAddressBytes = 6;
inline constexpr std::size_t kIpv6AddressBytes = 16;

// "0a1b"; nothing for no bytes.
std::string to_hex(std::span<const std::uint8_t> bytes);

// Reads what to_hex writes, in either case. Throws std::invalid_argument with what is wrong.
std::vector<std::uint8_t> from_hex(const std::string& text);

// "02:00:5e:10:00:01" for 6 bytes, "2001:db8::1" for 16, hexadecimal digits for any other number.
std::string to_address(std::span<const std::uint8_t> bytes);

// Reads what to_address writes for `size` bytes, and hexadecimal digits. Throws std::invalid_argument.
std::vector<std::uint8_t> from_address(const std::string& text, std::size_t size);

}  // namespace tool

#endif
