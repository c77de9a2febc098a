// SPDX-License-Identifier: Apache-2.0
#include "tool/message/record_text.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <array>
#include <charconv>
#include <stdexcept>

#include "tool/show/shown.h"

namespace tool {
namespace {

std::uint8_t byte_from(const std::string& text, std::size_t at) {
    std::uint8_t value = 0;
    const char* const first = text.data() + at;
    const auto [end, error] = std::from_chars(first, first + 2, value, 16);
    if (error != std::errc() || end != first + 2) {
        throw std::invalid_argument(
            fmt::format("\"{}\" is not hexadecimal at character {}", shortened(text), at + 1));
    }
    return value;
}

}  // namespace

std::string to_hex(std::span<const std::uint8_t> bytes) {
    return fmt::format("{:02x}", fmt::join(bytes, ""));
}

std::vector<std::uint8_t> from_hex(const std::string& text) {
    if (text.size() % 2 != 0)
        throw std::invalid_argument(fmt::format("\"{}\" has an odd number of digits", shortened(text)));
    std::vector<std::uint8_t> bytes;
    bytes.reserve(text.size() / 2);
    for (std::size_t at = 0; at < text.size(); at += 2) bytes.push_back(byte_from(text, at));
    return bytes;
}

std::string to_address(std::span<const std::uint8_t> bytes) {
    if (bytes.size() == kHardwareAddressBytes) return fmt::format("{:02x}", fmt::join(bytes, ":"));
    if (bytes.size() == kIpv6AddressBytes) {
        std::array<char, INET6_ADDRSTRLEN> text = {};
        inet_ntop(AF_INET6, bytes.data(), text.data(), text.size());
        return text.data();
    }
    return to_hex(bytes);
}

std::vector<std::uint8_t> from_address(const std::string& text, std::size_t size) {
    std::vector<std::uint8_t> bytes(size);
    if (size == kIpv6AddressBytes && inet_pton(AF_INET6, text.c_str(), bytes.data()) == 1) return bytes;
    if (size == kHardwareAddressBytes && text.size() == 3 * size - 1) {
        for (std::size_t i = 0; i < size; ++i) {
            if (i != 0 && text[3 * i - 1] != ':') {
                throw std::invalid_argument(fmt::format("\"{}\" is not a hardware address", shortened(text)));
            }
            bytes[i] = byte_from(text, 3 * i);
        }
        return bytes;
    }
    bytes = from_hex(text);
    if (bytes.size() != size) {
        throw std::invalid_argument(
            fmt::format("\"{}\" holds {} bytes, not {}", shortened(text), bytes.size(), size));
    }
    return bytes;
}

}  // namespace tool
