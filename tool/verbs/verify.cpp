// SPDX-License-Identifier: Apache-2.0
// nac verify: what is wrong with messages, and where.
#include <fmt/format.h>

#include <cstddef>
#include <string>

#include "tool/io/message_files.h"
#include "tool/message/finding.h"
#include "tool/show/counted.h"
#include "tool/show/shown.h"
#include "tool/verb.h"

namespace tool {
namespace {

struct VerifyOptions {
    MessageOptions messages;
    std::string output;
    bool quiet = false;
    bool json = false;
};

std::string text_of(const Finding& finding, const Message& message) {
    std::string text = fmt::format("{}: {}, {} bytes, {}\n", shown(message.origin), message.type.name,
                                   message.bytes.size(), summary_of(finding));
    for (const Fault& fault : finding.walk.faults) {
        text += fmt::format("  {}\n", fault_text(fault));
    }
    if (finding.walk.more_faults != 0) text += fmt::format("  and {} more\n", finding.walk.more_faults);
    for (const std::string& line : finding.logged) text += fmt::format("  logged: {}\n", line);
    return text;
}

ExitCode run_verify(const VerifyOptions& options) {
    std::size_t all = 0;
    std::size_t damaged = 0;
    Output output(options.output);
    for_each_message(options.messages, [&](const Message& message) {
        const Finding finding = find_faults(message.type, message.bytes);
        ++all;
        if (!finding.is_whole()) ++damaged;
        if (options.quiet && finding.is_whole()) return;
        if (!options.json) return output.write(text_of(finding, message));
        Json object = {{"origin", message.origin}};
        object.update(message.packet_json());
        object.update(finding_to_json(finding, message.type, message.bytes));
        output.write_line(object);
    });
    output.finish();
    report("{}, {} damaged", counted(all, "message"), damaged);
    return damaged == 0 ? kOk : kBadData;
}

}  // namespace

void add_verify(CLI::App& command, Chosen& chosen) {
    auto [verb, options] = add_verb(command, chosen, run_verify);
    add_message_options(verb, options.messages);
    verb.add_option("-o,--output", options.output, kOutputHelp)->type_name("FILE");
    verb.add_flag("-q,--quiet", options.quiet, "Only the damaged ones");
    verb.add_flag("--json", options.json, kJsonHelp);
    verb.footer(
        "The first fault is where the library stops; those after it are in what it does not reach.\n"
        "Exit code 1 if a message is damaged.");
}

}  // namespace tool
