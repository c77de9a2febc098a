// SPDX-License-Identifier: Apache-2.0
#include "tool/io/json_lines.h"

#include <fmt/format.h>

#include <cerrno>
#include <fstream>
#include <iostream>
#include <istream>
#include <system_error>

namespace tool {
namespace {

using Use = std::function<void(const JsonLine&)>;

CommandError bad_data(const std::string& origin, const std::string& what) {
    return {kBadData, fmt::format("{}: {}", origin, what)};
}

// The type that a line tells; null: it tells none.
const MessageType* type_of(const Json& object, const std::string& origin) {
    const auto type = object.find("type");
    if (type == object.end()) return nullptr;
    if (!type->is_string() && !type->is_number_unsigned()) {
        throw bad_data(origin, "no \"type\" with a message type's name");
    }
    const std::string name = type->is_string() ? type->get<std::string>() : type->dump();
    const MessageType* const found = named_message_type(name);
    if (found != nullptr) return found;
    throw bad_data(origin, fmt::format("{} is not a message type; nac types lists them", name));
}

void read_line(const std::string& line, const std::string& origin, const Use& use,
               const MessageType* usual_type) {
    Json object;
    try {
        object = Json::parse(line);
    } catch (const Json::parse_error& error) {
        throw bad_data(origin, fmt::format("not JSON, at character {}", error.byte));
    }
    const MessageType* type = object.is_object() ? type_of(object, origin) : nullptr;
    if (type == nullptr && object.is_object()) type = usual_type;
    if (type == nullptr) throw bad_data(origin, "no \"type\" with a message type's name");
    use({origin, *type, object, line.size() + 1});
}

void read_stream(std::istream& stream, const std::string& file, const Use& use,
                 const MessageType* usual_type) {
    std::string line;
    for (std::size_t number = 1; std::getline(stream, line); ++number) {
        if (line.find_first_not_of(" \t\r") != std::string::npos) {
            read_line(line, fmt::format("{}:{}", file, number), use, usual_type);
        }
    }
    if (stream.bad()) throw CommandError(kTrouble, fmt::format("{}: cannot be read", file));
}

}  // namespace

const Json& JsonLine::member(const char* name) const {
    const auto found = object.find(name);
    if (found == object.end()) throw bad(fmt::format("no \"{}\"", name));
    return *found;
}

CommandError JsonLine::bad(const std::string& what) const { return bad_data(origin, what); }

void for_each_line(const std::vector<std::string>& files, const Use& use, const MessageType* usual_type) {
    for (const std::string& file : files) {
        if (file == "-") {
            read_stream(std::cin, "standard input", use, usual_type);
            continue;
        }
        std::ifstream stream(file);
        if (!stream) {
            throw CommandError(kTrouble, fmt::format("{}: {}", file, std::generic_category().message(errno)));
        }
        read_stream(stream, file, use, usual_type);
    }
}

}  // namespace tool
