// SPDX-License-Identifier: Apache-2.0
#include "inspect/byte_text.h"

#include <arpa/inet.h>

#include <charconv>
#include <stdexcept>
#include <system_error>

#include "inspect/bounded_text.h"

namespace inspect {
namespace {

std::invalid_argument refusal(std::string_view text, const std::string& what) {
    return std::invalid_argument("\"" + shortened(text) + "\" " + what);
}

std::uint8_t byte_from(std::string_view text, std::size_t at) {
    std::uint8_t value = 0;
    const char* const first = text.data() + at;
    const auto [end, error] = std::from_chars(first, first + 2, value, 16);
    if (error != std::errc() || end != first + 2) {
        throw refusal(text, "is not hexadecimal at character " + std::to_string(at + 1));
    }
    return value;
}

struct StringText : TextOf<StringText> {
    std::string text;
    void put(std::string_view part) { text += part; }
};

}  // namespace

std::string to_hex(std::span<const std::uint8_t> bytes) {
    StringText made;
    made.add_hex(bytes);
    return made.text;
}

std::string to_address(std::span<const std::uint8_t> bytes) {
    StringText made;
    made.add_address(bytes);
    return made.text;
}

std::string shortened(std::string_view text, std::size_t most) {
    if (text.size() <= most) return std::string(text);
    while (most > 0 && (static_cast<std::uint8_t>(text[most]) & 0xC0U) == 0x80) --most;
    return std::string(text.substr(0, most)) + "...";
}

std::vector<std::uint8_t> from_hex(std::string_view text) {
    if (text.size() % 2 != 0) throw refusal(text, "has an odd number of digits");
    std::vector<std::uint8_t> bytes;
    bytes.reserve(text.size() / 2);
    for (std::size_t at = 0; at < text.size(); at += 2) bytes.push_back(byte_from(text, at));
    return bytes;
}

std::vector<std::uint8_t> from_address(const std::string& text, std::size_t size) {
    std::vector<std::uint8_t> bytes(size);
    if (size == kIpv6AddressBytes && inet_pton(AF_INET6, text.c_str(), bytes.data()) == 1) return bytes;
    if (size == kHardwareAddressBytes && text.size() == 3 * size - 1) {
        for (std::size_t i = 0; i < size; ++i) {
            if (i != 0 && text[3 * i - 1] != ':') throw refusal(text, "is not a hardware address");
            bytes[i] = byte_from(text, 3 * i);
        }
        return bytes;
    }
    bytes = from_hex(text);
    if (bytes.size() != size) {
        throw refusal(text, "holds " + std::to_string(bytes.size()) + " bytes, not " + std::to_string(size));
    }
    return bytes;
}

}  // namespace inspect
