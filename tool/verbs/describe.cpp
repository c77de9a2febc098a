// SPDX-License-Identifier: Apache-2.0
// nac describe.
#include "tool/verbs/describe.h"

#include <fmt/format.h>

#include <string>

#include "tool/message/message_type.h"
#include "tool/verb.h"

namespace tool {
namespace {

struct DescribeOptions {
    std::vector<std::string> types;  // names or ids; tables inside messages by name
    bool json = false;
};

const char* text_of(kaplo::Kind kind) {
    switch (kind) {
        case kaplo::Kind::scalar:
            return "scalar";
        case kaplo::Kind::fixed_array:
            return "fixed array";
        case kaplo::Kind::nested_table:
            return "nested table";
        case kaplo::Kind::scalar_vector:
            return "scalar vector";
        case kaplo::Kind::table_vector:
            break;
    }
    return "table vector";
}

const char* text_of(Display display) {
    switch (display) {
        case Display::number:
            return "number";
        case Display::hardware_address:
            return "hardware address";
        case Display::ipv6_address:
            return "IPv6 address";
        case Display::hex:
            return "hexadecimal";
        case Display::numbers:
            return "numbers";
        case Display::table:
            return "table";
        case Display::tables:
            break;
    }
    return "tables";
}

template <class T>
Json or_null(const std::optional<T>& value) {
    return value ? Json(*value) : Json(nullptr);
}

// Offsets in an image count from its start.
std::optional<std::uint32_t> in_image(const FieldShape& field) {
    if (!field.image_offset) return std::nullopt;
    return kaplo::kRootTableAt + *field.image_offset;
}

Json field_to_json(const FieldShape& field) {
    return {{"name", field.name},
            {"kind", field.text},
            {"form", text_of(field.kind)},
            {"display", text_of(field.display)},
            {"element_bytes", field.element_bytes},
            {"count", field.count},
            {"table", field.table != nullptr ? Json(field.table->name) : Json(nullptr)},
            {"record_offset", field.record_offset},
            {"count_offset", or_null(field.count_offset)},
            {"slot", field.slot},
            {"image_offset", or_null(in_image(field))},
            {"image_bytes", or_null(field.image_bytes)}};
}

std::string number_or_dash(const std::optional<std::uint32_t>& number) {
    return number ? fmt::format("{}", *number) : "-";
}

void print_shape(const Shape& shape) {
    fmt::print("{}{}\n", shape.name,
               shape.id ? fmt::format("  0x{:08X}  module {}", *shape.id, shape.module)
                        : std::string("  only inside messages"));
    fmt::print("record {} bytes, vtable {} bytes, {}\n", shape.record_bytes, shape.vtable_bytes,
               shape.image ? fmt::format("fixed image {} bytes: table of {} at {}, vtable at {}",
                                         shape.image->bytes, shape.image->table_length, kaplo::kRootTableAt,
                                         kaplo::kRootTableAt + shape.image->vtable)
                           : std::string("no fixed image"));
    fmt::print("  {:<5} {:<24} {:<17} {:>6} {:>6} {:>6} {:>6}\n", "field", "kind", "shown as", "record",
               "slot", "image", "bytes");
    for (const FieldShape& field : shape.fields) {
        fmt::print("  {:<5} {:<24} {:<17} {:>6} {:>6} {:>6} {:>6}\n", field.name, field.text,
                   text_of(field.display), field.record_offset, field.slot, number_or_dash(in_image(field)),
                   number_or_dash(field.image_bytes));
    }
}

ExitCode run_describe(const DescribeOptions& options) {
    for (const std::string& name : options.types) {
        const MessageType* const type = named_message_type(name);
        const Shape* const shape = type != nullptr ? type->shape : find_shape(name);
        if (shape == nullptr) {
            throw CommandError(kBadUsage, fmt::format("{} is no type; nac types lists the messages", name));
        }
        if (options.json) {
            fmt::print("{}\n", json_text(shape_to_json(*shape)));
        } else {
            print_shape(*shape);
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

Json shape_to_json(const Shape& shape) {
    Json object = {{"name", shape.name},
                   {"module", shape.id ? Json(shape.module) : Json(nullptr)},
                   {"id", or_null(shape.id)},
                   {"record_bytes", shape.record_bytes},
                   {"vtable_bytes", shape.vtable_bytes},
                   {"image_bytes", shape.image ? Json(shape.image->bytes) : Json(nullptr)},
                   {"image_table_length", shape.image ? Json(shape.image->table_length) : Json(nullptr)},
                   {"image_vtable_offset",
                    shape.image ? Json(kaplo::kRootTableAt + shape.image->vtable) : Json(nullptr)},
                   {"fields", Json::array()}};
    for (const FieldShape& field : shape.fields) object["fields"].push_back(field_to_json(field));
    return object;
}

}  // namespace tool
