// SPDX-License-Identifier: Apache-2.0
// Where a verb's data goes. Every write, flush and close is checked here.
#ifndef TOOL_OUTPUT_H
#define TOOL_OUTPUT_H

#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <string_view>

#include "tool/message/record_json.h"

namespace tool {

enum class Format;

// Every function throws CommandError where the system refuses.
class Output {
  public:
    // Empty and "-" are standard output.
    explicit Output(const std::string& file);
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    void write(std::string_view text);
    void write(std::span<const std::uint8_t> bytes);

    // One JSON object on a line of its own.
    void write_line(const Json& object);

    // One message in the format; `type` may be null where the format does not need it.
    void write(Format format, const MessageType* type, std::span<const std::uint8_t> bytes);

    // What has been written is in the file when it returns.
    void flush();

    // The end: all has been written, or this throws.
    void finish();

    const std::string& name() const { return name_; }

  private:
    std::string name_;
    std::FILE* file_;
};

// An object as text without its last brace, for members that are written piece by piece.
std::string open_object(const Json& object);

// Writes a record as JSON, in memory that does not grow with it.
void write_record(const MessageType& type, const void* record, Output& output);

// Flushes what was printed to standard output. Throws CommandError.
void flush_standard_output();

}  // namespace tool

#endif
