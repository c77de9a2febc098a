// SPDX-License-Identifier: Apache-2.0
// nac listen.
#include <fmt/format.h>

#include <chrono>
#include <cstdio>

#include "tool/io/interrupt.h"
#include "tool/io/open_bus.h"
#include "tool/message/message_type.h"
#include "tool/show/brief.h"
#include "tool/verb.h"

namespace tool {
namespace {

struct ListenOptions {
    std::string bus;
    std::uint32_t as = 0;
    bool json = false;
    std::uint64_t count = 0;  // messages to wait for; 0: no end
    double timeout_s = 0;     // of silence, after which it ends; 0: never
};

using Clock = std::chrono::steady_clock;

void print(const vorn_bus_message& message, bool json) {
    const MessageType& type = *find_message_type(message.message_id);  // only its ids are registered
    const Json record = type.to_json(message.record);
    if (json) {
        Json line = {{"type", type.name}, {"from", message.source}, {"bytes", message.packed_bytes}};
        if (message.target != 0) line["target"] = message.target;
        if (message.flags != 0) line["repeated"] = true;
        line["record"] = record;
        fmt::print("{}\n", line.dump());
    } else {
        const std::string target = message.target == 0 ? "" : fmt::format(" to {}", message.target);
        fmt::print("{:<7} {:<36} {:>6}  {}\n", fmt::format("{}{}", message.source, target), type.name,
                   message.packed_bytes, summary(record));
    }
}

ExitCode run_listen(const ListenOptions& options) {
    show_log_lines();
    catch_interrupts();
    OpenBus bus(options.bus, options.as);
    std::uint64_t arrived = 0;
    auto last = Clock::now();
    bus.on_message([&](const vorn_bus_message& message) {
        ++arrived;
        last = Clock::now();
        print(message, options.json);
    });
    fmt::print(stderr, "listening at address {}: {}\n", options.as, vorn_bus_endpoint(bus.get()));
    if (!options.json) fmt::print("{:<7} {:<36} {:>6}  {}\n", "from", "type", "bytes", "record");
    static_cast<void>(std::fflush(stdout));

    bool silent = false;
    while (!is_interrupted() && !silent && (options.count == 0 || arrived < options.count)) {
        std::uint32_t handled = 0;
        vorn_bus_poll(bus.get(), 100, 1, &handled);
        if (handled != 0 && bus.counters().waiting_batches != 0) continue;
        if (std::fflush(stdout) != 0) throw CommandError(kTrouble, "standard output cannot be written");
        silent =
            options.timeout_s > 0 && Clock::now() - last > std::chrono::duration<double>(options.timeout_s);
    }
    const vorn_bus_counters counters = bus.counters();
    fmt::print(stderr, "{} records in {} batches arrived; {} of unknown ids, {} damaged, {} log lines\n",
               arrived, counters.received_batches, counters.unknown_messages, counters.damaged, log_lines());
    if (arrived < options.count) {
        throw CommandError(
            kTrouble, fmt::format("{} of {} records did not arrive", options.count - arrived, options.count));
    }
    return counters.unknown_messages + counters.damaged + log_lines() == 0 ? kOk : kBadData;
}

}  // namespace

void add_listen(CLI::App& command, Chosen& chosen) {
    auto [verb, options] = add_verb(command, chosen, run_listen);
    verb.add_option("--as", options.as, "The address")->required();
    verb.add_option("--bus", options.bus, kBusHelp);
    verb.add_flag("--json", options.json, "One JSON object a line, as nac send reads them");
    verb.add_option("--count", options.count, "End after so many records")->check(CLI::PositiveNumber);
    verb.add_option("--timeout", options.timeout_s, "End after so many seconds without a record")
        ->check(CLI::PositiveNumber);
}

}  // namespace tool
