// SPDX-License-Identifier: Apache-2.0
// Times, for people and in JSON, where a number of nanoseconds would lose its last digits.
#ifndef TOOL_TIME_TEXT_H
#define TOOL_TIME_TEXT_H

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <cstdint>
#include <ctime>
#include <string>

namespace tool {

// Of nanoseconds since 1970: "2025-11-21T14:40:00.250113000Z".
inline std::string time_text(std::uint64_t nanoseconds) {
    constexpr std::uint64_t kSecond = 1'000'000'000;
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:09}Z",
                       fmt::gmtime(static_cast<std::time_t>(nanoseconds / kSecond)), nanoseconds % kSecond);
}

}  // namespace tool

#endif
