// SPDX-License-Identifier: Apache-2.0
// nac: command line and exit codes.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

#include "tool/commands.h"

namespace tool {
namespace {

ExitCode run(int argc, char** argv) {
    CLI::App app("Messages of the Nac package on the VORN bus.", "nac");
    app.set_version_flag("--version", "nac " NAC_VERSION);
    app.require_subcommand(1);
    app.footer(
        "Exit codes: 0 all is well, 1 data found bad or different, 2 wrong usage, 3 file or bus trouble.");

    TypesOptions types;
    CLI::App* const types_command = app.add_subcommand("types", "List the message types: ids, sizes, fields");
    types_command->add_flag("--json", types.json, "One JSON object a line");

    DecodeOptions decode;
    CLI::App* const decode_command = app.add_subcommand(
        "decode", "Read received bytes as the library does; print the records as JSON lines");
    decode_command->add_option("FILE", decode.files, "Messages as JSON lines; - is standard input")
        ->required();
    decode_command->footer(
        R"(A line: {"type": "Nac_SetPortMsg", "hex": "0c000000..."}. Exit code 1 if a message is damaged.)");

    ExchangeOptions exchange;
    CLI::App* const exchange_command = app.add_subcommand(
        "exchange",
        "Send records over the loopback bus, singly and as one batch a type, receive them,\n"
        "and compare what arrives with what was sent");
    exchange_command->add_option("FILE", exchange.files, "Records as JSON lines; - is standard input")
        ->required();
    exchange_command->add_flag("--json", exchange.json, "What arrives as one JSON object a line");
    exchange_command->footer(
        R"(A line: {"type": "Nac_SetPortMsg", "record": {"f0": 7, "f1": 1}}. Fields left out are zero.)");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        // CLI11 has exit codes of its own; here only --help and --version are 0.
        return app.exit(error) == 0 ? kOk : kBadUsage;
    }
    if (types_command->parsed()) return run_types(types);
    if (decode_command->parsed()) return run_decode(decode);
    return run_exchange(exchange);
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
