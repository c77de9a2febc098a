// SPDX-License-Identifier: Apache-2.0
// Numbers of things, for people.
#ifndef TOOL_COUNTED_H
#define TOOL_COUNTED_H

#include <fmt/format.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace tool {

// "1 message", "2 messages"; "batches".
inline std::string counted(std::uint64_t number, std::string_view noun) {
    return fmt::format("{} {}{}", number, noun, number == 1 ? "" : noun.ends_with("ch") ? "es" : "s");
}

}  // namespace tool

#endif
