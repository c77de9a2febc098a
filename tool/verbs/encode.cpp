// SPDX-License-Identifier: Apache-2.0
// nac encode: records as the bytes of messages.
#include <fmt/format.h>

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "tool/io/json_lines.h"
#include "tool/io/message_files.h"
#include "tool/verb.h"

namespace tool {
namespace {

enum class Written { compact, image, sent };

struct EncodeOptions {
    std::vector<std::string> files;  // "-" is standard input
    std::string type;
    std::string output;
    Written layout = Written::compact;
    Format format = Format::lines;
    bool json = false;
};

// The record of a line: its member, or, where --type names the type, the line itself.
const Json& record_of(const JsonLine& line, bool may_be_bare) {
    const bool bare = may_be_bare && !line.object.contains("record") && !line.object.contains("type");
    return bare ? line.object : line.member("record");
}

std::vector<std::uint8_t> encoded(const JsonLine& line, const Json& json, Written layout) {
    Records records(line.type);
    add_record(line, json, records);
    const bool has_image = line.type.image_bytes != 0;
    if (layout == Written::compact || (layout == Written::sent && !has_image)) {
        try {
            return packed(line.type, records[0]);
        } catch (const RecordError& error) {
            throw line.bad(fmt::format("{}.{}", line.type.name, error.what()));
        }
    }
    if (!has_image) throw line.bad(fmt::format("{} holds vectors and has no fixed image", line.type.name));
    std::vector<std::uint8_t> image(line.type.image_bytes);
    vorn_inspect_write_image(&line.type, records[0], image.data(), line.type.image_bytes);
    return image;
}

ExitCode run_encode(const EncodeOptions& options) {
    const MessageType* const type = type_option(options.type);
    const Format format = options.json ? Format::lines : options.format;
    Output output(options.output);
    std::size_t messages = 0;
    for_each_line(
        options.files,
        [&](const JsonLine& line) {
            if (format == Format::raw && ++messages == 2) {
                throw line.bad("a second message; a raw file is one, see --format");
            }
            output.write(format, &line.type, encoded(line, record_of(line, type != nullptr), options.layout));
        },
        type);
    output.finish();
    return kOk;
}

const std::map<std::string, Written>& layouts() {
    static const std::map<std::string, Written> names = {
        {"compact", Written::compact}, {"image", Written::image}, {"sent", Written::sent}};
    return names;
}

}  // namespace

void add_encode(CLI::App& command, Chosen& chosen) {
    auto [verb, options] = add_verb(command, chosen, run_encode);
    verb.add_option("FILE", options.files, "Records as JSON lines; - is standard input")->required();
    verb.add_option("--layout", options.layout,
                    "compact (if not given), image: the fixed image, sent: the one in which it is sent")
        ->transform(one_of(layouts()));
    add_format_option(verb, options.format, "What to write");
    verb.add_option("--type", options.type, "Name or id of the type, where the lines are bare records")
        ->type_name("TYPE");
    verb.add_option("-o,--output", options.output, kOutputHelp)->type_name("FILE");
    verb.add_flag("--json", options.json, "As --format lines");
    verb.footer(
        R"(A line: {"type": "Nac_SetPortMsg", "record": {"f0": 7, "f1": 1}}, or what nac decode prints.)");
}

}  // namespace tool
