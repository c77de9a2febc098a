// SPDX-License-Identifier: Apache-2.0
// Messages in files, in each of the formats that the verbs read and write.
#ifndef TOOL_MESSAGE_FILES_H
#define TOOL_MESSAGE_FILES_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tool/commands.h"
#include "tool/io/message_filter.h"
#include "tool/io/output.h"
#include "tool/message/byte_order.h"
#include "tool/message/message_type.h"

namespace tool {

enum class Format {
    lines,     // JSON lines: {"type": "Nac_SetPortMsg", "hex": "0c00..."}
    raw,       // a file is one message
    hex,       // a line is one message, in hexadecimal digits
    prefixed,  // each message after its length, a u32, little-endian
    tagged,    // each message after its id and its length, two such u32
    pcapng,    // a capture of nac record, which is recognised by itself; not written
    dump,      // what hexdump -C and xxd print, which is recognised by itself; not written
};

// Options of a verb that reads messages.
struct MessageOptions {
    std::vector<std::string> files;  // "-" is standard input
    Format format = Format::lines;
    std::string type;      // name or id; empty: the messages name theirs
    FilterOptions filter;  // but for the type
    WireOrder byte_order = WireOrder::little;
};

// Adds FILE, --format, --type and what chooses messages.
void add_message_options(CLI::App& verb, MessageOptions& options);

// The names of the formats. Only nac record writes captures.
using Formats = std::map<std::string, Format>;
const Formats& write_formats();
const Formats& read_formats();

// Adds --format.
void add_format_option(CLI::App& verb, Format& format, const std::string& purpose,
                       const Formats& formats = write_formats());

// Of a message in a capture.
struct Packet {
    std::uint64_t number;  // from 1
    std::uint64_t time;    // nanoseconds since 1970
    std::uint32_t source;
    std::uint32_t destination;
};

struct Message {
    std::string origin;  // "file:line", "file: message 3"
    const MessageType& type;
    std::span<const std::uint8_t> bytes;      // of any number
    std::optional<Packet> packet;             // where it comes from a capture
    std::span<const std::uint8_t> wire = {};  // as they were read, where --byte-order has changed them

    std::span<const std::uint8_t> wire_bytes() const { return wire.empty() ? bytes : wire; }

    // "file:line", "file: packet 18, 2025-11-21T14:40:00.250113000Z, 1 -> 2".
    std::string context() const;
    // Members for its JSON, if it comes from a capture.
    Json packet_json() const;
    CommandError bad(const std::string& what) const;
};

// Calls `use` for each message, file by file, keeping no more than one. Throws CommandError with the position
// and the fault; of captures only at their end, so that a bad message does not hide the others.
void for_each_message(const MessageOptions& options, const std::function<void(const Message&)>& use);

// The type that --type names; null for none. Throws CommandError for what is no type.
const MessageType* type_option(const std::string& text);

}  // namespace tool

#endif
