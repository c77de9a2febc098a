// SPDX-License-Identifier: Apache-2.0
// nac listen.
#include <fmt/format.h>

#include <chrono>

#include "tool/io/interrupt.h"
#include "tool/io/open_bus.h"
#include "tool/io/output.h"
#include "tool/message/finding.h"
#include "tool/message/host_services.h"
#include "tool/message/message_type.h"
#include "tool/show/brief.h"
#include "tool/show/counted.h"
#include "tool/show/shown.h"
#include "tool/verb.h"

namespace tool {
namespace {

struct ListenOptions {
    std::string bus;
    std::uint32_t as = 0;
    Octets octets = Octets::automatic;
    bool json = false;
    std::uint64_t count = 0;  // messages to wait for; 0: no end
    double timeout_s = 0;     // of silence, after which it ends; 0: never
};

using Clock = std::chrono::steady_clock;

constexpr std::int32_t kDrainMilliseconds = 5000;

void print(const vorn_bus_message& message, const ListenOptions& options, Output& output) {
    const MessageType& type = *find_message_type(message.message_id);  // only its ids are registered
    if (options.json) {
        Json line = {{"type", type.name}, {"from", message.source}, {"bytes", message.packed_bytes}};
        if (message.target != 0) line["target"] = message.target;
        if ((message.flags & VORN_BUS_REPEATED) != 0) line["repeated"] = true;
        line["verdict"] = message.fault == nullptr ? "ok" : "damaged";
        line["faults"] = message.fault == nullptr
                             ? Json::array()
                             : Json(fault_texts(type, {message.packed, message.packed_bytes}));
        output.write(open_object(line) + R"(,"record":)");
        write_record(type, message.record, output);
        write_texts(type, message.record, options.octets,
                    [&output](std::string_view piece) { output.write(piece); });
        output.write("}\n");
    } else {
        const std::string target = message.target == 0 ? "" : fmt::format(" to {}", message.target);
        output.write(fmt::format("{:<7} {:<36} {:>6}  {}\n", fmt::format("{}{}", message.source, target),
                                 type.name, message.packed_bytes,
                                 message.fault == nullptr ? summary(type, message.record, options.octets)
                                                          : fmt::format("damaged: {}", message.fault)));
    }
}

ExitCode run_listen(const ListenOptions& options) {
    show_log_lines();
    catch_interrupts();
    require_shared_bus(options.bus);
    OpenBus bus(options.bus, options.as);
    Output output("-");
    std::uint64_t arrived = 0;
    auto last = Clock::now();
    bus.on_message([&](const vorn_bus_message& message) {
        ++arrived;
        last = Clock::now();
        print(message, options, output);
    });
    report("listening at address {}: {}", options.as, vorn_bus_endpoint(bus.get()));
    if (!options.json)
        output.write(fmt::format("{:<7} {:<36} {:>6}  {}\n", "from", "type", "bytes", "record"));
    output.flush();

    bool silent = false;
    while (!is_interrupted() && !silent && (options.count == 0 || arrived < options.count)) {
        if (bus.poll(100, 1) != 0 && bus.counters().waiting_batches != 0) continue;
        output.flush();
        silent =
            options.timeout_s > 0 && Clock::now() - last > std::chrono::duration<double>(options.timeout_s);
    }
    // What senders have left that have ended is this process's alone.
    if (is_interrupted()) bus.drain(kDrainMilliseconds);
    output.flush();
    const vorn_bus_counters counters = bus.counters();
    report("{} in {} arrived; {} damaged, {} of unknown ids, {} damaged batches or packets, {}",
           counted(arrived, "record"), counted(counters.received_batches, "batch"), counters.damaged_messages,
           counters.unknown_messages, counters.damaged, counted(shown_log_lines(), "log line"));
    if (arrived < options.count) {
        throw CommandError(kTrouble, fmt::format("{} of {} did not arrive", options.count - arrived,
                                                 counted(options.count, "record")));
    }
    const bool all_well =
        counters.damaged_messages + counters.unknown_messages + counters.damaged + shown_log_lines() == 0;
    return all_well ? kOk : kBadData;
}

}  // namespace

void add_listen(CLI::App& command, Chosen& chosen) {
    auto [verb, options] = add_verb(command, chosen, run_listen);
    verb.add_option("--as", options.as, "The address")->required()->transform(bus_address());
    verb.add_option("--bus", options.bus, kBusHelp);
    add_octets_option(verb, options.octets);
    verb.add_flag("--json", options.json, "One JSON object a line, as nac send reads them");
    verb.add_option("--count", options.count, "End after this number of records")->transform(whole_number(1));
    verb.add_option("--timeout", options.timeout_s, "End after this number of seconds without a record")
        ->transform(seconds());
    verb.footer("Exit code 1 if something damaged or of an unknown id arrived, 3 if records did not arrive.");
}

}  // namespace tool
