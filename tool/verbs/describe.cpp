// SPDX-License-Identifier: Apache-2.0
// nac describe.
#include "tool/verbs/describe.h"

#include <fmt/format.h>

#include <array>
#include <string>

#include "tool/message/message_type.h"
#include "tool/verb.h"

namespace tool {
namespace {

struct DescribeOptions {
    std::vector<std::string> types;  // names or ids; tables inside messages by name
    bool json = false;
};

constexpr std::uint32_t kTableInImage = 4;  // after the root reference

// In the order of vorn_kind and vorn_display.
constexpr std::array kForms = {"scalar", "fixed array", "nested table", "scalar vector", "table vector"};
constexpr std::array kDisplays = {
    "number", "hardware address", "IPv6 address", "hexadecimal", "numbers", "table", "tables"};

Json number_or_null(bool exists, std::uint32_t number) { return exists ? Json(number) : Json(nullptr); }

Json field_json(const Field& field) {
    const bool in_image = field.image_offset != VORN_NO_OFFSET;
    return {{"name", field.name},
            {"kind", field.type_name},
            {"form", kForms.at(field.kind)},
            {"display", kDisplays.at(field.display)},
            {"element_bytes", field.element_bytes},
            {"count", field.count},
            {"table", field.table != nullptr ? Json(field.table->name) : Json(nullptr)},
            {"record_offset", field.record_offset},
            {"count_offset", number_or_null(field.count_offset != VORN_NO_OFFSET, field.count_offset)},
            {"slot", field.slot},
            {"image_offset", number_or_null(in_image, kTableInImage + field.image_offset)},
            {"image_bytes", number_or_null(in_image, field.image_bytes)}};
}

void print_description(const MessageType& type) {
    fmt::print("{}{}\n", type.name,
               type.module != nullptr ? fmt::format("  0x{:08X}  module {}", type.id, type.module)
                                      : std::string("  only inside messages"));
    fmt::print("record {} bytes, vtable {} bytes, {}\n", type.record_bytes, type.vtable_bytes,
               type.image_bytes != 0 ? fmt::format("fixed image {} bytes: table of {} at {}, vtable at {}",
                                                   type.image_bytes, type.image_table_length, kTableInImage,
                                                   kTableInImage + type.image_vtable_offset)
                                     : std::string("no fixed image"));
    fmt::print("  {:<5} {:<24} {:<17} {:>6} {:>6} {:>6} {:>6}\n", "field", "kind", "shown as", "record",
               "slot", "image", "bytes");
    for (const Field* const field : fields_of(type)) {
        const bool in_image = field->image_offset != VORN_NO_OFFSET;
        const auto number = [in_image](std::uint32_t value) {
            return in_image ? fmt::format("{}", value) : std::string("-");
        };
        fmt::print("  {:<5} {:<24} {:<17} {:>6} {:>6} {:>6} {:>6}\n", field->name, field->type_name,
                   kDisplays.at(field->display), field->record_offset, field->slot,
                   number(kTableInImage + field->image_offset), number(field->image_bytes));
    }
}

ExitCode run_describe(const DescribeOptions& options) {
    for (const std::string& name : options.types) {
        const MessageType* const message = named_message_type(name);
        const MessageType* const type = message != nullptr ? message : find_type(name);
        if (type == nullptr) {
            throw CommandError(kBadUsage, no_such_type(name));
        }
        if (options.json) {
            fmt::print("{}\n", json_text(description_json(*type)));
        } else {
            print_description(*type);
        }
    }
    return kOk;
}

}  // namespace

void add_describe(CLI::App& command, Chosen& chosen) {
    auto [verb, options] = add_verb(command, chosen, run_describe);
    verb.add_option("TYPE", options.types, "Name or id of a message; name of a table in one")->required();
    verb.add_flag("--json", options.json, kJsonHelp);
}

Json description_json(const MessageType& type) {
    const bool is_message = type.module != nullptr;
    const bool has_image = type.image_bytes != 0;
    Json object = {
        {"name", type.name},
        {"module", is_message ? Json(type.module) : Json(nullptr)},
        {"id", number_or_null(is_message, type.id)},
        {"record_bytes", type.record_bytes},
        {"vtable_bytes", type.vtable_bytes},
        {"image_bytes", number_or_null(has_image, type.image_bytes)},
        {"image_table_length", number_or_null(has_image, type.image_table_length)},
        {"image_vtable_offset", number_or_null(has_image, kTableInImage + type.image_vtable_offset)},
        {"fields", Json::array()}};
    for (const Field* const field : fields_of(type)) object["fields"].push_back(field_json(*field));
    return object;
}

}  // namespace tool
