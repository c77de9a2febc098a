// SPDX-License-Identifier: Apache-2.0
// Text from files, the bus and servers, made safe for a terminal; standard error.
#ifndef TOOL_SHOWN_H
#define TOOL_SHOWN_H

#include <fmt/format.h>

#include <cstddef>
#include <exception>
#include <string>
#include <string_view>
#include <utility>

#include "inspect/byte_text.h"

namespace tool {

// `text` with control characters, characters that change the direction of text, and bytes that are no UTF-8
// written as "\x1b", and without the user and password of URLs: "nats://***@host".
std::string shown(std::string_view text);
// The same with URLs as they are.
std::string escaped(std::string_view text);
// Whether it has none of what is escaped.
bool is_printable(std::string_view text);

using inspect::shortened;

// Writes one line, without its end, to standard error as shown() has it. Does not throw: a line that cannot
// be written there can be reported nowhere.
void report_line(std::string_view text) noexcept;

void report_lack_of_memory() noexcept;

template <class... Values>
void report(fmt::format_string<Values...> format, Values&&... values) noexcept try {
    report_line(fmt::format(format, std::forward<Values>(values)...));
} catch (const std::exception&) {
    report_lack_of_memory();
}

}  // namespace tool

#endif
