// SPDX-License-Identifier: Apache-2.0
// nac dissector: the script tool/verbs/dissector.lua with the descriptions of all types in it.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <string>
#include <string_view>

#include <dissector_script.h>
#include "tool/message/message_type.h"
#include "tool/message/shape.h"
#include "tool/verb.h"

namespace tool {
namespace {

struct DissectorOptions {
    bool json = false;
};

const char* kind_text(kaplo::Kind kind) {
    switch (kind) {
        case kaplo::Kind::scalar:
            return "scalar";
        case kaplo::Kind::fixed_array:
            return "fixed_array";
        case kaplo::Kind::nested_table:
            return "table";
        case kaplo::Kind::scalar_vector:
            return "vector";
        case kaplo::Kind::table_vector:
            break;
    }
    return "tables";
}

const char* display_text(Display display) {
    switch (display) {
        case Display::number:
            return "number";
        case Display::hardware_address:
            return "ether";
        case Display::ipv6_address:
            return "ipv6";
        case Display::hex:
            return "bytes";
        case Display::numbers:
            return "numbers";
        case Display::table:
        case Display::tables:
            break;
    }
    return "none";
}

std::string definition(const Shape& shape) {
    std::string text =
        fmt::format("define(\"{}\", \"{}\", \"{}\", {}, {{\n", shape.name, shape.nested_decoder,
                    shape.root_decoder, shape.id ? fmt::format("0x{:08X}", *shape.id) : "nil");
    for (const FieldShape& field : shape.fields) {
        text += fmt::format("    {{\"{}\", \"{}\", \"{}\", {}, {}{}}},\n", field.name, kind_text(field.kind),
                            display_text(field.display), field.element_bytes, field.count,
                            field.table != nullptr ? fmt::format(", \"{}\"", field.table->name) : "");
    }
    return text + "})\n";
}

void replace(std::string& text, std::string_view what, const std::string& by) {
    const std::size_t at = text.find(what);
    if (at != std::string::npos) text.replace(at, what.size(), by);
}

std::string script() {
    std::string types;
    for (const Shape* const shape : all_shapes()) types += definition(*shape);
    std::string text = kDissectorScript;
    replace(text, "@VERSION@", "nac " NAC_VERSION);
    replace(text, "@TYPES@\n", types);
    return text;
}

ExitCode run_dissector(const DissectorOptions& options) {
    if (options.json) {
        const Json object = {{"language", "lua"}, {"link_type", 147}, {"script", script()}};
        fmt::print("{}\n", json_text(object));
    } else {
        fmt::print("{}", script());
    }
    return kOk;
}

}  // namespace

void add_dissector(CLI::App& command, Chosen& chosen) {
    auto [verb, options] = add_verb(command, chosen, run_dissector);
    verb.add_flag("--json", options.json, "The script in a JSON object");
    verb.footer("tshark -X lua_script:nac.lua -r capture.pcapng -V");
}

}  // namespace tool
