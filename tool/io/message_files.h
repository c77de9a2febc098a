// SPDX-License-Identifier: Apache-2.0
// Messages in files, in each of the formats that the verbs read and write.
#ifndef TOOL_MESSAGES_H
#define TOOL_MESSAGES_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "tool/commands.h"
#include "tool/message/message_type.h"

namespace tool {

enum class Format {
    lines,     // JSON lines: {"type": "Nac_SetPortMsg", "hex": "0c00..."}
    raw,       // a file is one message
    hex,       // a line is one message, in hexadecimal digits
    prefixed,  // each message behind its length, a u32, little-endian
    tagged,    // each message behind its id and its length, two such u32
    pcapng,    // a capture of nac record, which is recognised by itself; not written
};

// What a verb that reads messages is told.
struct MessageOptions {
    std::vector<std::string> files;  // "-" is standard input
    Format format = Format::lines;
    std::string type;  // name or id; empty: the messages tell theirs
};

// Adds FILE, --format and --type.
void add_message_options(CLI::App& verb, MessageOptions& options);

// The names of the formats. No verb writes captures but nac record.
using Formats = std::map<std::string, Format>;
const Formats& write_formats();
const Formats& read_formats();

// Adds --format.
void add_format_option(CLI::App& verb, Format& format, const std::string& purpose,
                       const Formats& formats = write_formats());

struct Message {
    std::string origin;  // "file:line", "file: message 3"
    const MessageType& type;
    std::span<const std::uint8_t> bytes;  // of any number

    CommandError bad(const std::string& what) const;
};

// Calls `use` for each message, file by file, keeping no more than one. Throws CommandError that says where
// and what; of captures only at their end, for messages that `use` finds bad there say nothing of the others.
void for_each_message(const MessageOptions& options, const std::function<void(const Message&)>& use);

// The type that --type names; null for none. Throws CommandError for what is no type.
const MessageType* type_option(const std::string& text);

// Where a verb's data goes.
class Output {
  public:
    // Empty and "-" are standard output.
    explicit Output(const std::string& file);
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    void write(const std::string& text);
    void write(std::span<const std::uint8_t> bytes);

    // One message in the format; `type` may be null where the format does not tell it.
    void write(Format format, const MessageType* type, std::span<const std::uint8_t> bytes);

    // Throws CommandError unless all was written.
    void finish();

  private:
    std::string name_;
    std::FILE* file_;
};

}  // namespace tool

#endif
