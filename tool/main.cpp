// SPDX-License-Identifier: Apache-2.0
// nac: command line and exit codes.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

#include "tool/commands.h"

namespace tool {
namespace {

// In the order in which --help lists them.
constexpr auto kVerbs = {
    add_types,  add_describe, add_decode,    add_encode,    add_verify, add_hex,     add_assemble,
    add_diff,   add_random,   add_exchange,  add_send,      add_listen, add_monitor, add_record,
    add_replay, add_info,     add_dissector, add_bus_stats, add_doctor, add_bench,   add_completion};

ExitCode run(int argc, char** argv) {
    CLI::App app("Messages of the Nac package on the VORN bus.", "nac");
    app.set_version_flag("--version", "nac " NAC_VERSION);
    app.require_subcommand(1);
    app.footer(
        "Exit codes: 0 all is well, 1 data found bad or different, 2 wrong usage, 3 file or bus trouble.");
    Chosen chosen;
    for (const auto add : kVerbs) add(app, chosen);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        // CLI11 has exit codes of its own; here only --help and --version are 0.
        return app.exit(error) == 0 ? kOk : kBadUsage;
    }
    const ExitCode code = chosen();
    // What could not be written is found out at the end, where the last of it goes out.
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        throw CommandError(kTrouble, "standard output cannot be written");
    }
    return code;
}

}  // namespace
}  // namespace tool

int main(int argc, char** argv) try {
    return tool::run(argc, argv);
} catch (const tool::CommandError& error) {
    static_cast<void>(std::fprintf(stderr, "nac: %s\n", error.what()));
    return error.code();
} catch (const std::exception& error) {
    static_cast<void>(std::fprintf(stderr, "nac: %s\n", error.what()));
    return tool::kTrouble;
}
