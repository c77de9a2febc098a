// SPDX-License-Identifier: Apache-2.0
// nac types.
#include <fmt/format.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "tool/message/described_package.h"
#include "tool/message/message_type.h"
#include "tool/verb.h"

namespace tool {
namespace {

struct TypesOptions {
    bool json = false;
};

// "f0-f3 u32, f4 u16": neighbours of one kind share an entry. Broken into lines after `indent` blanks.
std::string fields_text(const MessageType& type, std::size_t indent) {
    constexpr std::size_t kWidth = 78;
    std::string text;
    std::string line;
    const auto fields = fields_of(type);
    for (std::size_t first = 0; first < fields.size();) {
        const Field& field = *fields[first];
        std::size_t last = first;
        while (last + 1 < fields.size() && fields[last + 1]->type_name == std::string_view(field.type_name))
            ++last;
        std::string entry = first == last
                                ? fmt::format("{} {}", field.name, field.type_name)
                                : fmt::format("{}-{} {}", field.name, fields[last]->name, field.type_name);
        if (last + 1 != fields.size()) entry += ", ";
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
        for (const MessageType* const type : message_types())
            fmt::print("{}\n", json_text(description_json(*type)));
        return kOk;
    }
    for (const MessageType* const type : message_types()) {
        const std::string sent =
            type->image_bytes != 0 ? fmt::format("image {}", type->image_bytes) : std::string("compact");
        fmt::print("{:<37} 0x{:08X}  {:<12}  record {:>3}  {}\n{}", type->name, type->id, type->module,
                   type->record_bytes, sent, fields_text(*type, 4));
    }
    return kOk;
}

}  // namespace

void add_types(CLI::App& command, Chosen& chosen) {
    auto [verb, options] = add_verb(command, chosen, run_types);
    verb.add_flag("--json", options.json, kJsonHelp);
}

}  // namespace tool
