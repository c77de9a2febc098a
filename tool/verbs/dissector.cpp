// SPDX-License-Identifier: Apache-2.0
// nac dissector: the script tool/verbs/dissector.lua with the descriptions of all types in it.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <array>
#include <string>
#include <string_view>

#include <dissector_script.h>
#include "tool/message/record_json.h"
#include "tool/verb.h"

namespace tool {
namespace {

struct DissectorOptions {
    bool json = false;
};

// The script's words, in the order of vorn_kind and vorn_display.
constexpr std::array kKinds = {"scalar", "fixed_array", "table", "vector", "tables"};
constexpr std::array kDisplays = {"number", "ether", "ipv6", "bytes", "numbers", "none", "none"};

std::string definition(const MessageType& type) {
    std::string text =
        fmt::format("define(\"{}\", \"{}\", \"{}\", {}, {{\n", type.name, type.nested_decoder,
                    type.root_decoder, type.module != nullptr ? fmt::format("0x{:08X}", type.id) : "nil");
    for (const Field* const field : fields_of(type)) {
        text +=
            fmt::format("    {{\"{}\", \"{}\", \"{}\", {}, {}{}}},\n", field->name, kKinds.at(field->kind),
                        kDisplays.at(field->display), field->element_bytes, field->count,
                        field->table != nullptr ? fmt::format(", \"{}\"", field->table->name) : "");
    }
    return text + "})\n";
}

void replace(std::string& text, std::string_view what, const std::string& by) {
    const std::size_t at = text.find(what);
    if (at != std::string::npos) text.replace(at, what.size(), by);
}

std::string script() {
    std::string types;
    for (const MessageType* const type : all_types()) types += definition(*type);
    std::string text = kDissectorScript;
    replace(text, "@VERSION@", "nac " NAC_VERSION);
    replace(text, "@PACKAGE@", catalogues().front()->package);
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
