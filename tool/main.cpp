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

    DescribeOptions describe;
    CLI::App* const describe_command = app.add_subcommand(
        "describe",
        "Tell one type field by field: kinds, sizes, places in the record and in the fixed image");
    describe_command->add_option("TYPE", describe.types, "Name or id of a message; name of a table in one")
        ->required();
    describe_command->add_flag("--json", describe.json, "One JSON object a line");

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
        "Send records over a bus within the tool, singly and as one batch a type, receive them,\n"
        "and compare what arrives with what was sent");
    exchange_command->add_option("FILE", exchange.files, "Records as JSON lines; - is standard input")
        ->required();
    exchange_command->add_flag("--json", exchange.json, "What arrives as one JSON object a line");
    exchange_command->footer(
        R"(A line: {"type": "Nac_SetPortMsg", "record": {"f0": 7, "f1": 1}}. Fields left out are zero.)");

    const char* const bus_help = "URL of the bus; else VORN_BUS_URL, else loop:";
    SendOptions send;
    CLI::App* const send_command = app.add_subcommand("send", "Send records to an address of the bus");
    send_command->add_option("FILE", send.files, "Records as JSON lines; - is standard input")->required();
    send_command->add_option("--to", send.to, "Address of the receiver")->required();
    send_command->add_option("--as", send.as, "Address of the sender, 0 if not given");
    send_command->add_option("--target", send.target, "Target handed on with each message");
    send_command->add_option("--bus", send.bus, bus_help);
    send_command->add_flag("--batch", send.batch, "Neighbouring records of a type travel as one unit");
    send_command->add_option("--rate", send.rate, "Records a second; as fast as they are taken if not given")
        ->check(CLI::PositiveNumber);
    send_command->add_option("--timeout", send.timeout_s, "Seconds to wait for the receiver, 10 if not given")
        ->check(CLI::PositiveNumber);

    ListenOptions listen;
    CLI::App* const listen_command =
        app.add_subcommand("listen", "Print the records that arrive at an address");
    listen_command->add_option("--as", listen.as, "The address")->required();
    listen_command->add_option("--bus", listen.bus, bus_help);
    listen_command->add_flag("--json", listen.json, "One JSON object a line, as nac send reads them");
    listen_command->add_option("--count", listen.count, "End after so many records")
        ->check(CLI::PositiveNumber);
    listen_command->add_option("--timeout", listen.timeout_s, "End after so many seconds without a record")
        ->check(CLI::PositiveNumber);

    BusStatsOptions stats;
    CLI::App* const bus_command = app.add_subcommand("bus", "Ask the bus");
    bus_command->require_subcommand(1);
    CLI::App* const stats_command = bus_command->add_subcommand("stats", "The counters of open buses");
    stats_command->add_option("ADDRESS", stats.addresses, "Whose; on ipc: all that are open if not given");
    stats_command->add_option("--bus", stats.bus, bus_help);
    stats_command->add_flag("--json", stats.json, "One JSON object a line");
    stats_command->add_option("--timeout", stats.timeout_s, "Seconds to wait for an answer, 1 if not given")
        ->check(CLI::PositiveNumber);

    DoctorOptions doctor;
    CLI::App* const doctor_command = app.add_subcommand(
        "doctor", "Tell which host services and which bus a process gets, and whether an address is free");
    doctor_command->add_option("PROGRAM", doctor.program, "A program's file; this process if not given");
    doctor_command->add_option("--bus", doctor.bus, bus_help);
    doctor_command->add_option("--as", doctor.as, "The address, 0 if not given");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        // CLI11 has exit codes of its own; here only --help and --version are 0.
        return app.exit(error) == 0 ? kOk : kBadUsage;
    }
    if (types_command->parsed()) return run_types(types);
    if (describe_command->parsed()) return run_describe(describe);
    if (decode_command->parsed()) return run_decode(decode);
    if (send_command->parsed()) return run_send(send);
    if (listen_command->parsed()) return run_listen(listen);
    if (stats_command->parsed()) return run_bus_stats(stats);
    if (doctor_command->parsed()) return run_doctor(doctor);
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
