// SPDX-License-Identifier: Apache-2.0
// nac bus list.
#include <fmt/format.h>

#include <optional>
#include <string>

#include "tool/io/bus_addresses.h"
#include "tool/io/open_bus.h"
#include "tool/message/record_json.h"
#include "tool/show/shown.h"
#include "tool/verb.h"

namespace tool {
namespace {

struct BusListOptions {
    std::string bus;
    bool json = false;
    double timeout_s = 1;
};

// None: it does not answer, or nobody is there to.
std::optional<std::uint64_t> waiting_batches(const char* url, const BusAddress& at, double timeout_s) {
    if (!at.is_open) return std::nullopt;
    vorn_bus_counters counters = vorn_bus_counters_init();
    if (vorn_bus_ask_counters(url, at.address, milliseconds(timeout_s), &counters) != VORN_BUS_OK) {
        return std::nullopt;
    }
    return counters.waiting_batches;
}

ExitCode run_bus_list(const BusListOptions& options) {
    require_shared_bus(options.bus);
    const char* const url = url_or_null(options.bus);
    const std::vector<BusAddress> all = bus_addresses(url);
    if (!options.json && !all.empty()) {
        fmt::print("{:<10} {:<6} {:>15} {:>12}  {}\n", "address", "open", "waiting_batches", "stored_bytes",
                   "endpoint");
    }
    for (const BusAddress& at : all) {
        const std::optional<std::uint64_t> waiting = waiting_batches(url, at, options.timeout_s);
        if (options.json) {
            const Json line = {{"address", at.address},
                               {"open", at.is_open},
                               {"waiting_batches", waiting ? Json(*waiting) : Json(nullptr)},
                               {"stored_bytes", at.stored_bytes},
                               {"endpoint", at.endpoint}};
            fmt::print("{}\n", json_text(line));
        } else {
            fmt::print("{:<10} {:<6} {:>15} {:>12}  {}\n", at.address, at.is_open ? "yes" : "no",
                       waiting ? std::to_string(*waiting) : "-", at.stored_bytes, shown(at.endpoint));
        }
    }
    if (all.empty()) report("{}: no address is in use", vorn_bus_display_url(url));
    return kOk;
}

}  // namespace

void add_bus_list(CLI::App& command, Chosen& chosen) {
    auto [verb, options] = add_verb(command, chosen, run_bus_list);
    verb.add_option("--bus", options.bus, kBusHelp);
    verb.add_flag("--json", options.json, kJsonHelp);
    verb.add_option("--timeout", options.timeout_s, "Seconds to wait for each answer, 1 if not given")
        ->transform(seconds());
    verb.footer(
        "An address that is not open has left a socket's file, or a stream with what waits for the next "
        "process there: stored_bytes. On ipc its senders have what waits.");
}

}  // namespace tool
