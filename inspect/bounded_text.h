// SPDX-License-Identifier: Apache-2.0
// Text without an allocation: in a buffer of the caller's, or piece by piece to a callback.
#ifndef INSPECT_BOUNDED_TEXT_H
#define INSPECT_BOUNDED_TEXT_H

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

namespace inspect {

inline constexpr std::size_t kHardwareAddressBytes = 6;
inline constexpr std::size_t kIpv6AddressBytes = 16;

// What kinds of text have in common. Out has put(std::string_view).
template <class Out>
class TextOf {
  public:
    // Adds texts and numbers, one after the other.
    template <class... Parts>
    Out& add(const Parts&... parts) {
        (add_part(parts), ...);
        return self();
    }

    // "0a1b", or with a separator "0a:1b".
    void add_hex(std::span<const std::uint8_t> bytes, std::string_view separator = "") {
        constexpr std::string_view digits = "0123456789abcdef";
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            if (i != 0) self().put(separator);
            const std::array pair = {digits[bytes[i] >> 4U], digits[bytes[i] & 0xFU]};
            self().put({pair.data(), pair.size()});
        }
    }

    // "02:00:5e:10:00:01" for 6 bytes, "2001:db8::1" for 16, hexadecimal digits for any other number.
    void add_address(std::span<const std::uint8_t> bytes) {
        if (bytes.size() == kHardwareAddressBytes) return add_hex(bytes, ":");
        if (bytes.size() != kIpv6AddressBytes) return add_hex(bytes);
        std::array<char, INET6_ADDRSTRLEN> text = {};
        inet_ntop(AF_INET6, bytes.data(), text.data(), text.size());
        self().put(text.data());
    }

  private:
    Out& self() { return static_cast<Out&>(*this); }
    void add_part(std::string_view text) { self().put(text); }
    template <std::unsigned_integral Number>
    void add_part(Number number) {
        std::array<char, 20> digits = {};
        const char* const end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
        self().put({digits.data(), static_cast<std::size_t>(end - digits.data())});
    }
};

// What does not fit is counted and left out, as snprintf does.
class BoundedText : public TextOf<BoundedText> {
  public:
    BoundedText(char* text, std::size_t capacity) : text_(text), capacity_(capacity) { end_at(0); }

    void put(std::string_view part) {
        if (length_ + 1 < capacity_) {
            std::memcpy(text_ + length_, part.data(), std::min(part.size(), capacity_ - 1 - length_));
        }
        end_at(length_ + part.size());
    }

    // Cuts the text to its first `length` characters.
    void end_at(std::size_t length) {
        length_ = length;
        if (capacity_ != 0) text_[std::min(length, capacity_ - 1)] = '\0';
    }

    const char* c_str() const { return text_; }
    std::size_t length() const { return length_; }

  private:
    char* text_;
    std::size_t capacity_;
    std::size_t length_ = 0;
};

}  // namespace inspect

#endif
