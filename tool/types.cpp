// SPDX-License-Identifier: Apache-2.0
// nac types.
#include <fmt/format.h>

#include <cstddef>
#include <string>

#include "tool/commands.h"
#include "tool/message_type.h"

namespace tool {
namespace {

Json type_to_json(const MessageType& type) {
    Json object = {{"name", type.name},
                   {"module", type.module},
                   {"id", type.id},
                   {"record_bytes", type.record_bytes},
                   {"image_bytes", type.image_bytes ? Json(*type.image_bytes) : Json(nullptr)},
                   {"fields", Json::array()}};
    for (const FieldText& field : type.fields) {
        object["fields"].push_back({{"name", field.name}, {"kind", field.kind}});
    }
    return object;
}

// "f0-f3 u32, f4 u16": neighbours of one kind share an entry. Broken into lines behind `indent` blanks.
std::string fields_text(const MessageType& type, std::size_t indent) {
    constexpr std::size_t kWidth = 78;
    std::string text;
    std::string line;
    for (std::size_t first = 0; first < type.fields.size();) {
        std::size_t last = first;
        while (last + 1 < type.fields.size() && type.fields[last + 1].kind == type.fields[first].kind) ++last;
        const FieldText& field = type.fields[first];
        std::string entry = first == last
                                ? fmt::format("{} {}", field.name, field.kind)
                                : fmt::format("{}-{} {}", field.name, type.fields[last].name, field.kind);
        if (last + 1 != type.fields.size()) entry += ", ";
        if (indent + line.size() + entry.size() > kWidth) {
            line.pop_back();  // the blank behind the comma
            text += fmt::format("{:{}}{}\n", "", indent, line);
            line.clear();
        }
        line += entry;
        first = last + 1;
    }
    return text + fmt::format("{:{}}{}\n", "", indent, line);
}

}  // namespace

ExitCode run_types(const TypesOptions& options) {
    if (options.json) {
        for (const auto& type : message_types()) fmt::print("{}\n", type_to_json(*type).dump());
        return kOk;
    }
    for (const auto& type : message_types()) {
        const std::string sent =
            type->image_bytes ? fmt::format("image {}", *type->image_bytes) : std::string("compact");
        fmt::print("{:<37} 0x{:08X}  {:<12}  record {:>3}  {}\n{}", type->name, type->id, type->module,
                   type->record_bytes, sent, fields_text(*type, 4));
    }
    return kOk;
}

}  // namespace tool
