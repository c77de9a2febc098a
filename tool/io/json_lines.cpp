// SPDX-License-Identifier: Apache-2.0
#include "tool/io/json_lines.h"

#include <fmt/format.h>

#include <stdexcept>

#include "tool/io/line_reader.h"
#include "tool/show/shown.h"

namespace tool {
namespace {

// The type that a line names; null: it names none.
const MessageType* type_of(const Json& object, const LineReader& reader) {
    const auto type = object.find("type");
    if (type == object.end()) return nullptr;
    if (!type->is_string() && !type->is_number_unsigned()) {
        throw reader.bad("no \"type\" with a message type's name");
    }
    const std::string name = type->is_string() ? type->get<std::string>() : json_text(*type);
    const MessageType* const found = named_message_type(name);
    if (found != nullptr) return found;
    throw reader.bad(no_such_type(name));
}

}  // namespace

const Json& JsonLine::member(const char* name) const {
    const auto found = object.find(name);
    if (found == object.end()) throw bad(fmt::format("no \"{}\"", name));
    return *found;
}

CommandError JsonLine::bad(const std::string& what) const { return {kBadData, origin + ": " + what}; }

void add_record(const JsonLine& line, const Json& record, Records& records) {
    try {
        records.add(record);
    } catch (const RecordError& error) {
        throw line.bad(fmt::format("{}.{}", line.type.name, error.what()));
    }
}

void for_each_line(Input& input, const std::function<void(const JsonLine&)>& use,
                   const MessageType* usual_type) {
    LineReader reader(input);
    for (std::string line; reader.next(line);) {
        if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
        Json object;
        try {
            object = json_from_text(line);
        } catch (const std::invalid_argument& error) {
            throw reader.bad(error.what());
        }
        const MessageType* type = object.is_object() ? type_of(object, reader) : nullptr;
        if (type == nullptr && object.is_object()) type = usual_type;
        if (type == nullptr) throw reader.bad("no \"type\" with a message type's name");
        use({reader.origin(), *type, object, line.size() + 1});
    }
}

void for_each_line(const std::vector<std::string>& files, const std::function<void(const JsonLine&)>& use,
                   const MessageType* usual_type) {
    for (const std::string& file : files) {
        Input input(file);
        for_each_line(input, use, usual_type);
    }
}

}  // namespace tool
