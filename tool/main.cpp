// SPDX-License-Identifier: Apache-2.0
// nac: command line and exit codes.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

#include "tool/commands.h"

namespace {

// CLI11 has exit codes of its own; here every wrong command line is 2, and --help and --version are 0.
int report(const CLI::App& app, const CLI::ParseError& error) {
    return app.exit(error) == 0 ? tool::kOk : tool::kBadUsage;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Messages of the Nac package on the VORN bus.", "nac");
    app.set_version_flag("--version", "nac " NAC_VERSION);
    app.require_subcommand(1);
    app.footer(
        "Exit codes: 0 all is well, 1 data found bad or different, 2 wrong usage, 3 file or bus trouble.");

    tool::TypesOptions types;
    CLI::App* const types_command = app.add_subcommand("types", "List the message types: ids, sizes, fields");
    types_command->add_flag("--json", types.json, "One JSON object a line");

    tool::ExchangeOptions exchange;
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
        return report(app, error);
    }
    try {
        return types_command->parsed() ? tool::run_types(types) : tool::run_exchange(exchange);
    } catch (const tool::CommandError& error) {
        fmt::print(stderr, "nac: {}\n", error.what());
        return error.code();
    } catch (const std::exception& error) {
        fmt::print(stderr, "nac: {}\n", error.what());
        return tool::kTrouble;
    }
}
