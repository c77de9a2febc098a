// SPDX-License-Identifier: Apache-2.0
// nac types.
#include <fmt/format.h>

#include <cstddef>
#include <string>

#include "tool/message/message_type.h"
#include "tool/verb.h"
#include "tool/verbs/describe.h"

namespace tool {
namespace {

struct TypesOptions {
    bool json = false;
};

// "f0-f3 u32, f4 u16": neighbours of one kind share an entry. Broken into lines after `indent` blanks.
std::string fields_text(const Shape& shape, std::size_t indent) {
    constexpr std::size_t kWidth = 78;
    std::string text;
    std::string line;
    for (std::size_t first = 0; first < shape.fields.size();) {
        std::size_t last = first;
        while (last + 1 < shape.fields.size() && shape.fields[last + 1].text == shape.fields[first].text)
            ++last;
        const FieldShape& field = shape.fields[first];
        std::string entry = first == last
                                ? fmt::format("{} {}", field.name, field.text)
                                : fmt::format("{}-{} {}", field.name, shape.fields[last].name, field.text);
        if (last + 1 != shape.fields.size()) entry += ", ";
        if (indent + line.size() + entry.size() > kWidth) {
            line.pop_back();  // the blank after the comma
            text += fmt::format("{:{}}{}\n", "", indent, line);
            line.clear();
        }
        line += entry;
        first = last + 1;
    }
    return text + fmt::format("{:{}}{}\n", "", indent, line);
}

ExitCode run_types(const TypesOptions& options) {
    if (options.json) {
        for (const auto& type : message_types()) fmt::print("{}\n", json_text(shape_to_json(*type->shape)));
        return kOk;
    }
    for (const auto& type : message_types()) {
        const std::string sent =
            type->image_bytes ? fmt::format("image {}", *type->image_bytes) : std::string("compact");
        fmt::print("{:<37} 0x{:08X}  {:<12}  record {:>3}  {}\n{}", type->name, type->id, type->module,
                   type->record_bytes, sent, fields_text(*type->shape, 4));
    }
    return kOk;
}

}  // namespace

void add_types(CLI::App& command, Chosen& chosen) {
    auto [verb, options] = add_verb(command, chosen, run_types);
    verb.add_flag("--json", options.json, kJsonHelp);
}

}  // namespace tool
