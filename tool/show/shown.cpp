// SPDX-License-Identifier: Apache-2.0
#include "tool/show/shown.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <exception>

namespace tool {
namespace {

struct Character {
    std::uint32_t code;
    std::size_t bytes;  // 0: no UTF-8
};

// The character at the beginning of `text`, which is not empty.
Character first_character(std::string_view text) {
    const auto byte = [text](std::size_t at) { return static_cast<std::uint8_t>(text[at]); };
    const std::uint8_t lead = byte(0);
    if (lead < 0x80) return {lead, 1};
    const std::size_t bytes = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < bytes) return {0, 0};
    std::uint32_t code = lead & (0x7FU >> bytes);
    for (std::size_t at = 1; at < bytes; ++at) {
        if ((byte(at) & 0xC0U) != 0x80) return {0, 0};
        code = code << 6 | (byte(at) & 0x3FU);
    }
    const std::uint32_t least = bytes == 2 ? 0x80 : bytes == 3 ? 0x800 : 0x10000;
    if (code < least || code > 0x10FFFF || (code >= 0xD800 && code < 0xE000)) return {0, 0};
    return {code, bytes};
}

bool is_harmless(std::uint32_t code) {
    const bool is_control = code < 0x20 || (code >= 0x7F && code < 0xA0);
    const bool is_direction = code == 0x200E || code == 0x200F || (code >= 0x202A && code <= 0x202E) ||
                              (code >= 0x2066 && code <= 0x2069);
    return !is_control && !is_direction;
}

// Up to the last @ of the word: a password may hold any character but a blank. Paths of ipc:// are no secret.
std::string without_passwords(std::string_view text) {
    constexpr std::string_view kStart = "://";
    std::string safe;
    while (true) {
        const std::size_t start = text.find(kStart);
        if (start == std::string_view::npos) return safe.append(text);
        const std::size_t end = std::min(text.find_first_of(" \t\n", start), text.size());
        const std::size_t from = start + kStart.size();
        const std::size_t at = text.substr(0, end).rfind('@');
        const bool is_ipc = text.substr(0, start).ends_with("ipc");
        safe.append(text.substr(0, from));
        if (at != std::string_view::npos && at >= from && !is_ipc) {
            safe.append("***").append(text.substr(at, end - at));
        } else {
            safe.append(text.substr(from, end - from));
        }
        text.remove_prefix(end);
    }
}

// Not through stdio, which has a buffer to allocate.
void write_to_standard_error(std::string_view text) noexcept {
    while (!text.empty()) {
        const ssize_t written = ::write(STDERR_FILENO, text.data(), text.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

}  // namespace

std::string shown(std::string_view text) { return escaped(without_passwords(text)); }

bool is_printable(std::string_view text) {
    while (!text.empty()) {
        const Character character = first_character(text);
        if (character.bytes == 0 || !is_harmless(character.code)) return false;
        text.remove_prefix(character.bytes);
    }
    return true;
}

std::string escaped(std::string_view text) {
    std::string safe;
    for (std::string_view rest = text; !rest.empty();) {
        const Character character = first_character(rest);
        const std::size_t bytes = std::max<std::size_t>(character.bytes, 1);
        if (character.bytes != 0 && is_harmless(character.code)) {
            safe.append(rest.substr(0, bytes));
        } else {
            for (const char c : rest.substr(0, bytes))
                safe += fmt::format("\\x{:02x}", static_cast<std::uint8_t>(c));
        }
        rest.remove_prefix(bytes);
    }
    return safe;
}

void report_line(std::string_view text) noexcept {
    try {
        write_to_standard_error(shown(text) + "\n");
    } catch (const std::exception&) {
        report_lack_of_memory();
    }
}

void report_lack_of_memory() noexcept {
    write_to_standard_error("nac: no memory for what is to be reported\n");
}

}  // namespace tool
