// SPDX-License-Identifier: Apache-2.0
// Bytes as text, and from text as people write them. Readers throw std::invalid_argument with what is wrong.
#ifndef INSPECT_BYTE_TEXT_H
#define INSPECT_BYTE_TEXT_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace inspect {

// "...": at most `most` bytes of a text that may be long, and no part of a character of UTF-8.
std::string shortened(std::string_view text, std::size_t most = 80);

// As TextOf has them.
std::string to_hex(std::span<const std::uint8_t> bytes);
std::string to_address(std::span<const std::uint8_t> bytes);

// Reads hexadecimal digits of either case.
std::vector<std::uint8_t> from_hex(std::string_view text);

// Reads what TextOf::add_address writes for `size` bytes, and hexadecimal digits.
std::vector<std::uint8_t> from_address(const std::string& text, std::size_t size);

}  // namespace inspect

#endif
