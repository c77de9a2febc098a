// SPDX-License-Identifier: Apache-2.0
// nac bus stats.
#include <fmt/format.h>

#include <string>
#include <utility>
#include <vector>

#include "tool/io/bus_addresses.h"
#include "tool/io/open_bus.h"
#include "tool/message/record_json.h"
#include "tool/show/shown.h"
#include "tool/verb.h"

namespace tool {
namespace {

struct BusStatsOptions {
    std::string bus;
    std::vector<std::uint32_t> addresses;  // none: all that are open
    bool json = false;
    double timeout_s = 1;
};

std::vector<std::pair<const char*, std::uint64_t>> by_name(const vorn_bus_counters& counters) {
    return {{"sent_batches", counters.sent_batches},
            {"sent_messages", counters.sent_messages},
            {"refused_batches", counters.refused_batches},
            {"lost_batches", counters.lost_batches},
            {"unhandled_batches", counters.unhandled_batches},
            {"received_batches", counters.received_batches},
            {"received_messages", counters.received_messages},
            {"waiting_batches", counters.waiting_batches},
            {"unknown_messages", counters.unknown_messages},
            {"ignored_messages", counters.ignored_messages},
            {"damaged", counters.damaged},
            {"redelivered_batches", counters.redelivered_batches},
            {"missed_batches", counters.missed_batches},
            {"damaged_messages", counters.damaged_messages}};
}

std::vector<std::uint32_t> open_addresses(const char* url) {
    std::vector<std::uint32_t> addresses;
    for (const BusAddress& at : bus_addresses(url)) {
        if (at.is_open) addresses.push_back(at.address);
    }
    return addresses;
}

ExitCode run_bus_stats(const BusStatsOptions& options) {
    const char* const url = url_or_null(options.bus);
    const auto addresses = options.addresses.empty() ? open_addresses(url) : options.addresses;
    ExitCode code = kOk;
    for (const std::uint32_t address : addresses) {
        vorn_bus_counters counters = vorn_bus_counters_init();
        const std::int32_t result =
            vorn_bus_ask_counters(url, address, milliseconds(options.timeout_s), &counters);
        if (result != VORN_BUS_OK) {
            report("nac: address {}: {}", address, vorn_bus_result_text(result));
            code = kTrouble;
            continue;
        }
        if (options.json) {
            Json line = {{"address", address}};
            for (const auto& [name, value] : by_name(counters)) line[name] = value;
            fmt::print("{}\n", json_text(line));
        } else {
            fmt::print("address {}\n", address);
            for (const auto& [name, value] : by_name(counters)) fmt::print("  {:<18} {:>12}\n", name, value);
        }
    }
    return code;
}

}  // namespace

void add_bus(CLI::App& command, Chosen& /*chosen*/) { command.require_subcommand(1); }

void add_bus_stats(CLI::App& command, Chosen& chosen) {
    auto [verb, options] = add_verb(command, chosen, run_bus_stats);
    verb.add_option("ADDRESS", options.addresses, "Whose; all that are open if not given")
        ->transform(bus_address());
    verb.add_option("--bus", options.bus, kBusHelp);
    verb.add_flag("--json", options.json, kJsonHelp);
    verb.add_option("--timeout", options.timeout_s, "Seconds to wait for an answer, 1 if not given")
        ->transform(seconds());
}

}  // namespace tool
