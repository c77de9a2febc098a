// SPDX-License-Identifier: Apache-2.0
// nac info.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "inspect/byte_text.h"
#include "tool/io/capture_summary.h"
#include "tool/io/message_filter.h"
#include "tool/io/progress.h"
#include "tool/message/record_json.h"
#include "tool/show/shown.h"
#include "tool/show/time_text.h"
#include "tool/verb.h"

namespace tool {
namespace {

struct InfoOptions {
    std::vector<std::string> files;
    FilterOptions filter;
    bool json = false;
    bool messages = false;
};

Json message_json(const CapturedMessage& message, std::uint64_t packet) {
    return {{"packet", packet},
            {"time", time_text(message.time)},
            {"from", message.source},
            {"to", message.destination},
            {"target", message.target},
            {"batch", message.batch},
            {"position", message.position},
            {"count", message.count},
            {"id", message.id},
            {"bytes", message.bytes_on_bus},
            {"hex", inspect::to_hex(message.bytes)}};
}

ExitCode run_info(const InfoOptions& options) {
    const MessageFilter filter(options.filter);
    Progress progress(options.files);
    ExitCode code = kOk;
    for (const std::string& file : options.files) {
        CaptureReader reader(file);
        CaptureSummary summary;
        CapturedMessage message;
        while (reader.next(message)) {
            progress.add(reader.block_bytes());
            if (!filter.takes_packet(reader.packets()) ||
                !filter.passes(message.id, message.source, message.destination, message.bytes))
                continue;
            if (options.messages) {
                fmt::print("{}\n", json_text(message_json(message, reader.packets())));
            } else {
                summary.add(message, reader.packets());
            }
        }
        if (options.json && !options.messages) {
            fmt::print("{}\n", json_text(summary.to_json(reader)));
        } else if (!options.json) {
            summary.print(reader);
        }
        if (!reader.complaint().empty()) report("nac: {}: {}", reader.name(), reader.complaint());
        if (!reader.complaint().empty() || summary.has_damage()) code = kBadData;
    }
    return code;
}

}  // namespace

void add_info(CLI::App& command, Chosen& chosen) {
    auto [verb, options] = add_verb(command, chosen, run_info);
    verb.add_option("FILE", options.files, "Captures, also as gzip; - is standard input")->required();
    add_filter_options(verb, options.filter);
    add_packet_option(verb, options.filter);
    CLI::Option* const json = verb.add_flag("--json", options.json, "One JSON object a capture");
    verb.add_flag("--messages", options.messages, "With --json, instead one object a message, with its bytes")
        ->needs(json);
    verb.footer("Exit code 1 if messages are damaged, or if a capture ends early.");
}

}  // namespace tool
