// SPDX-License-Identifier: Apache-2.0
// Files of JSON lines, each an object with a message type, by name or id: {"type": "Nac_SetPortMsg", ...}.
#ifndef TOOL_JSON_LINES_H
#define TOOL_JSON_LINES_H

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "tool/commands.h"
#include "tool/io/input.h"
#include "tool/message/record_json.h"

namespace tool {

struct JsonLine {
    std::string origin;  // "file:line"
    const MessageType& type;
    const Json& object;
    std::size_t bytes;  // of the line, its end included

    // The member of this name. Throws CommandError if there is none.
    const Json& member(const char* name) const;

    // What is wrong with the data of this line.
    CommandError bad(const std::string& what) const;
};

// Adds a record of the line. Throws CommandError with what is wrong with it.
void add_record(const JsonLine& line, const Json& record, Records& records);

// Calls `use` for each line that is not blank, file by file; "-" is standard input. A line without a type has
// the usual one, if there is one. Throws CommandError with the position and the fault.
void for_each_line(const std::vector<std::string>& files, const std::function<void(const JsonLine&)>& use,
                   const MessageType* usual_type = nullptr);
// The same for the lines that follow in an input.
void for_each_line(Input& input, const std::function<void(const JsonLine&)>& use,
                   const MessageType* usual_type);

}  // namespace tool

#endif
