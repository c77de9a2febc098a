// SPDX-License-Identifier: Apache-2.0
// nac describe.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>
#include <vector>

#include "tool/message/described_package.h"
#include "tool/message/message_type.h"
#include "tool/verb.h"

namespace tool {
namespace {

struct DescribeOptions {
    std::vector<std::string> types;  // names or ids; tables inside messages by name
    bool json = false;
};

std::uint32_t number(const Json& description, const char* name) { return description.at(name); }
std::string text(const Json& description, const char* name) { return description.at(name); }

void print_description(const Json& type) {
    fmt::print("{}{}\n", text(type, "name"),
               type.at("id").is_null()
                   ? std::string("  only inside messages")
                   : fmt::format("  0x{:08X}  module {}", number(type, "id"), text(type, "module")));
    fmt::print("record {} bytes, vtable {} bytes, {}\n", number(type, "record_bytes"),
               number(type, "vtable_bytes"),
               type.at("image_bytes").is_null()
                   ? std::string("no fixed image")
                   : fmt::format("fixed image {} bytes: table of {} at {}, vtable at {}",
                                 number(type, "image_bytes"), number(type, "image_table_length"),
                                 kTableInImage, number(type, "image_vtable_offset")));
    fmt::print("  {:<5} {:<24} {:<17} {:>6} {:>6} {:>6} {:>6}\n", "field", "kind", "shown as", "record",
               "slot", "image", "bytes");
    for (const Json& field : type.at("fields")) {
        const auto if_in_image = [&field](const char* name) {
            return field.at(name).is_null() ? std::string("-") : json_text(field.at(name));
        };
        fmt::print("  {:<5} {:<24} {:<17} {:>6} {:>6} {:>6} {:>6}\n", text(field, "name"),
                   text(field, "kind"), text(field, "display"), number(field, "record_offset"),
                   number(field, "slot"), if_in_image("image_offset"), if_in_image("image_bytes"));
    }
}

std::vector<const MessageType*> chosen_types(const std::vector<std::string>& names) {
    if (names.empty()) return {all_types().begin(), all_types().end()};
    std::vector<const MessageType*> types;
    for (const std::string& name : names) {
        const MessageType* const message = named_message_type(name);
        types.push_back(message != nullptr ? message : find_type(name));
        if (types.back() == nullptr) throw CommandError(kBadUsage, no_such_type(name));
    }
    return types;
}

ExitCode run_describe(const DescribeOptions& options) {
    for (const MessageType* const type : chosen_types(options.types)) {
        const Json description = description_json(*type);
        if (options.json) {
            fmt::print("{}\n", json_text(description));
        } else {
            print_description(description);
        }
    }
    return kOk;
}

}  // namespace

void add_describe(CLI::App& command, Chosen& chosen) {
    auto [verb, options] = add_verb(command, chosen, run_describe);
    verb.add_option("TYPE", options.types,
                    "Name or id of a message; name of a table in one; all of both if not given");
    verb.add_flag("--json", options.json, kJsonHelp);
}

}  // namespace tool
