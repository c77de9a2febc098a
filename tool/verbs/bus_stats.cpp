// SPDX-License-Identifier: Apache-2.0
// nac bus stats.
#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "tool/io/open_bus.h"
#include "tool/message/record_json.h"
#include "tool/verb.h"

namespace tool {
namespace {

struct BusStatsOptions {
    std::string bus;
    std::vector<std::uint32_t> addresses;  // none: all that an ipc folder shows
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
            {"missed_batches", counters.missed_batches}};
}

// The addresses whose sockets are in an ipc folder.
std::vector<std::uint32_t> addresses_in(const std::string& url) {
    const std::string scheme = "ipc://";
    if (url.compare(0, scheme.size(), scheme) != 0) {
        throw CommandError(kBadUsage,
                           fmt::format("{}: name the addresses to ask; only an ipc folder shows them", url));
    }
    const std::string folder = url == scheme ? vorn_bus_usual_folder() : url.substr(scheme.size());
    std::vector<std::uint32_t> addresses;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
        const std::string name = entry.path().filename().string();
        std::uint32_t address = 0;
        const auto [end, fault] = std::from_chars(name.data(), name.data() + name.size(), address);
        if (fault == std::errc() && std::string(end) == ".sock") addresses.push_back(address);
    }
    if (error) throw CommandError(kTrouble, fmt::format("{}: {}", folder, error.message()));
    std::sort(addresses.begin(), addresses.end());
    return addresses;
}

ExitCode run_bus_stats(const BusStatsOptions& options) {
    const char* const url = url_or_null(options.bus);
    const auto addresses =
        options.addresses.empty() ? addresses_in(vorn_bus_chosen_url(url)) : options.addresses;
    ExitCode code = kOk;
    for (const std::uint32_t address : addresses) {
        vorn_bus_counters counters = {};
        const std::int32_t result =
            vorn_bus_ask_counters(url, address, milliseconds(options.timeout_s), &counters);
        if (result != VORN_BUS_OK) {
            fmt::print(stderr, "nac: address {}: {}\n", address, vorn_bus_result_text(result));
            code = kTrouble;
            continue;
        }
        if (options.json) {
            Json line = {{"address", address}};
            for (const auto& [name, value] : by_name(counters)) line[name] = value;
            fmt::print("{}\n", line.dump());
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
    verb.add_option("ADDRESS", options.addresses, "Whose; on ipc: all that are open if not given");
    verb.add_option("--bus", options.bus, kBusHelp);
    verb.add_flag("--json", options.json, kJsonHelp);
    verb.add_option("--timeout", options.timeout_s, "Seconds to wait for an answer, 1 if not given")
        ->check(CLI::PositiveNumber);
}

}  // namespace tool
