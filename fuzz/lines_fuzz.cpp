// SPDX-License-Identifier: Apache-2.0
// Promise: no file makes the reader of JSON lines misbehave: each line is an object with a known type, or the
// reader names the line and what is wrong with it.
//
// Input: lines, or anything.
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/input_file.h"
#include "tool/io/json_lines.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::InputFile file(std::span(data, size));
    std::size_t bytes = 0;
    try {
        tool::for_each_line({file.path()}, [&](const tool::JsonLine& line) {
            fuzz::promise(line.object.is_object(), "a line is an object");
            fuzz::promise(tool::find_message_type(line.type.id) == &line.type, "its type is known");
            fuzz::promise(line.origin.starts_with(file.path() + ":"), "it is where it was found");
            bytes += line.bytes;
        });
        fuzz::promise(bytes <= size + 1, "no line is read twice");
    } catch (const tool::CommandError& error) {
        fuzz::promise(std::string_view(error.what()).starts_with(file.path() + ":"),
                      "a fault names its line");
    }
    return 0;
}
