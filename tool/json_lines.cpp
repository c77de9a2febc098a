// SPDX-License-Identifier: Apache-2.0
#include "tool/json_lines.h"

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

void read_line(const std::string& line, const std::string& origin, const Use& use) {
    Json object;
    try {
        object = Json::parse(line);
    } catch (const Json::parse_error& error) {
        throw bad_data(origin, fmt::format("not JSON, at character {}", error.byte));
    }
    if (!object.is_object() || !object.contains("type") || !object["type"].is_string()) {
        throw bad_data(origin, "no \"type\" with a message type's name");
    }
    const auto name = object["type"].get<std::string>();
    const MessageType* const type = find_message_type(name);
    if (type == nullptr) {
        throw bad_data(origin, fmt::format("{} is not a message type; nac types lists them", name));
    }
    use({origin, *type, object, line.size() + 1});
}

void read_stream(std::istream& stream, const std::string& file, const Use& use) {
    std::string line;
    for (std::size_t number = 1; std::getline(stream, line); ++number) {
        if (line.find_first_not_of(" \t\r") != std::string::npos) {
            read_line(line, fmt::format("{}:{}", file, number), use);
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

void for_each_line(const std::vector<std::string>& files, const Use& use) {
    for (const std::string& file : files) {
        if (file == "-") {
            read_stream(std::cin, "standard input", use);
            continue;
        }
        std::ifstream stream(file);
        if (!stream) {
            throw CommandError(kTrouble, fmt::format("{}: {}", file, std::generic_category().message(errno)));
        }
        read_stream(stream, file, use);
    }
}

}  // namespace tool
