// SPDX-License-Identifier: Apache-2.0
// nac decode: received bytes, read as the library's unpack reads them.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cstddef>
#include <string>

#include "tool/io/message_files.h"
#include "tool/message/message_type.h"
#include "tool/message/octets.h"
#include "tool/show/shown.h"
#include "tool/verb.h"

namespace tool {
namespace {

struct DecodeOptions {
    MessageOptions messages;
    std::string output;
    Octets octets = Octets::automatic;
    bool json = true;
};

ExitCode run_decode(const DecodeOptions& options) {
    std::size_t damaged = 0;
    Output output(options.output);
    for_each_message(options.messages, [&](const Message& message) {
        const Unpacked unpacked(message.type, message.bytes);
        if (unpacked.verdict() == VORN_VERDICT_ARGUMENT) {
            throw message.bad(size_refusal(message.type, message.bytes.size()));
        }
        Json head = {{"type", message.type.name}};
        head.update(message.packet_json());
        head["verdict"] = vorn_inspect_verdict_text(unpacked.verdict());
        output.write(open_object(head) + R"(,"record":)");
        write_record(message.type, unpacked.record(), output);
        write_texts(message.type, unpacked.record(), options.octets,
                    [&output](std::string_view piece) { output.write(piece); });
        output.write(R"(,"faults":)" + json_text(unpacked.faults()) + "}\n");
        if (unpacked.is_valid()) return;
        ++damaged;
        report("nac: {}: {} is damaged in {}{}{}", message.origin, message.type.name,
               unpacked.verdict() == VORN_VERDICT_HEADER ? "its header" : "a field",
               unpacked.faults().empty() ? "" : ": ", fmt::join(unpacked.faults(), "; "));
    });
    output.finish();
    return damaged == 0 ? kOk : kBadData;
}

}  // namespace

void add_decode(CLI::App& command, Chosen& chosen) {
    auto [verb, options] = add_verb(command, chosen, run_decode);
    add_message_options(verb, options.messages);
    verb.add_option("-o,--output", options.output, kOutputHelp)->type_name("FILE");
    add_octets_option(verb, options.octets);
    verb.add_flag("--json", options.json, kAlwaysJsonHelp);
    verb.footer(
        R"(A line: {"type": "Nac_SetPortMsg", "hex": "0c000000..."}. Exit code 1 if a message is damaged.)");
}

}  // namespace tool
