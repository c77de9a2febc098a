// SPDX-License-Identifier: Apache-2.0
// nac decode: received bytes, read as the library's unpack reads them.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "tool/json_lines.h"
#include "tool/message_type.h"
#include "tool/record_text.h"
#include "tool/verb.h"

namespace tool {
namespace {

struct DecodeOptions {
    std::vector<std::string> files;  // "-" is standard input
};

const char* text_of(kaplo::Outcome outcome) {
    switch (outcome) {
        case kaplo::Outcome::whole:
            return "ok";
        case kaplo::Outcome::bad_header:
            return "header";
        case kaplo::Outcome::bad_field:
            break;
    }
    return "field";
}

Decoded decode(const JsonLine& line) {
    try {
        return line.type.decode(from_hex(text_from_json(line.member("hex"), "hex")));
    } catch (const RecordError& error) {
        throw line.bad(error.what());
    } catch (const std::invalid_argument& error) {
        throw line.bad(error.what());
    }
}

ExitCode run_decode(const DecodeOptions& options) {
    std::size_t damaged = 0;
    for_each_line(options.files, [&damaged](const JsonLine& line) {
        const Decoded decoded = decode(line);
        const char* const verdict = text_of(decoded.outcome);
        const Json object = {{"type", line.type.name},
                             {"verdict", verdict},
                             {"record", decoded.record},
                             {"faults", decoded.faults}};
        fmt::print("{}\n", object.dump());
        if (decoded.outcome == kaplo::Outcome::whole) return;
        ++damaged;
        fmt::print(stderr, "nac: {}: {} is damaged in {}{}{}\n", line.origin, line.type.name,
                   decoded.outcome == kaplo::Outcome::bad_header ? "its header" : "a field",
                   decoded.faults.empty() ? "" : ": ", fmt::join(decoded.faults, "; "));
    });
    return damaged == 0 ? kOk : kBadData;
}

}  // namespace

void add_decode(CLI::App& app, Chosen& chosen) {
    auto [verb, options] =
        add_verb(app, chosen, "decode",
                 "Read received bytes as the library does; print the records as JSON lines", run_decode);
    verb.add_option("FILE", options.files, "Messages as JSON lines; - is standard input")->required();
    verb.footer(
        R"(A line: {"type": "Nac_SetPortMsg", "hex": "0c000000..."}. Exit code 1 if a message is damaged.)");
}

}  // namespace tool
