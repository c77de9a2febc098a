// SPDX-License-Identifier: Apache-2.0
// Messages in files as bytes and as hexadecimal digits.
#ifndef TOOL_BYTE_FORMATS_H
#define TOOL_BYTE_FORMATS_H

#include <cstdint>
#include <functional>
#include <span>

#include "tool/io/input.h"
#include "tool/io/message_files.h"

namespace tool {

using UseMessage = std::function<void(const Message&)>;

// The whole input is one message.
void read_raw(Input& input, const MessageType& type, const UseMessage& use);
// Messages after their lengths, and after their ids too where no type is given.
void read_prefixed(Input& input, const MessageType* type, const UseMessage& use);
// A line is a message.
void read_hex(Input& input, const MessageType& type, const UseMessage& use);
// What hexdump -C or xxd print: a message begins where the offset is 0.
void read_dump(Input& input, const MessageType& type, const UseMessage& use);

// Whether text begins with a line of such a dump.
bool is_dump(std::span<const std::uint8_t> beginning);

}  // namespace tool

#endif
