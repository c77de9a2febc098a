// SPDX-License-Identifier: Apache-2.0
// Bytes from text as people write them. Throws std::invalid_argument with what is wrong.
#ifndef INSPECT_BYTE_TEXT_H
#define INSPECT_BYTE_TEXT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace inspect {

// "...": at most `most` bytes of a text that may be long.
std::string shortened(std::string_view text, std::size_t most = 80);

// Reads hexadecimal digits of either case.
std::vector<std::uint8_t> from_hex(std::string_view text);

// Reads what TextOf::add_address writes for `size` bytes, and hexadecimal digits.
std::vector<std::uint8_t> from_address(const std::string& text, std::size_t size);

}  // namespace inspect

#endif
