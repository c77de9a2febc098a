// SPDX-License-Identifier: Apache-2.0
// nac bus stats.
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "tool/io/bus_addresses.h"
#include "tool/io/interrupt.h"
#include "tool/io/open_bus.h"
#include "tool/io/output.h"
#include "tool/message/record_json.h"
#include "tool/show/shown.h"
#include "tool/verb.h"

namespace tool {
namespace {

using namespace std::chrono_literals;

struct BusStatsOptions {
    std::string bus;
    std::vector<std::uint32_t> addresses;  // none: all that are open
    std::string output;
    bool json = false;
    bool openmetrics = false;
    double watch_s = 0;
    double timeout_s = 1;
};

struct Counter {
    const char* name;
    std::uint64_t vorn_bus_counters::*value;
    const char* help;
    bool is_gauge = false;  // it also falls
};

constexpr Counter kCounters[] = {
    {"sent_batches", &vorn_bus_counters::sent_batches, "Batches that sends accepted"},
    {"sent_messages", &vorn_bus_counters::sent_messages, "Messages in them"},
    {"refused_batches", &vorn_bus_counters::refused_batches, "Batches that sends refused"},
    {"lost_batches", &vorn_bus_counters::lost_batches, "Accepted, and not known to have been handled"},
    {"unhandled_batches", &vorn_bus_counters::unhandled_batches, "Accepted, and on their way", true},
    {"received_batches", &vorn_bus_counters::received_batches, "Batches that were handled"},
    {"received_messages", &vorn_bus_counters::received_messages, "Messages given to a handler"},
    {"waiting_batches", &vorn_bus_counters::waiting_batches, "Arrived, and not handled yet", true},
    {"unknown_messages", &vorn_bus_counters::unknown_messages, "Of an id that nobody registered"},
    {"ignored_messages", &vorn_bus_counters::ignored_messages, "Of an id that has no handler"},
    {"damaged", &vorn_bus_counters::damaged, "Envelopes and packets that were damaged"},
    {"redelivered_batches", &vorn_bus_counters::redelivered_batches, "Arrived again, and left out"},
    {"missed_batches", &vorn_bus_counters::missed_batches, "Gone from the server before they were handled"},
    {"damaged_messages", &vorn_bus_counters::damaged_messages, "Messages that were damaged"},
};

struct Answer {
    std::uint32_t address;
    std::optional<vorn_bus_counters> counters;  // none: it did not answer
};

std::vector<std::uint32_t> open_addresses(const char* url) {
    std::vector<std::uint32_t> addresses;
    for (const BusAddress& at : bus_addresses(url)) {
        if (at.is_open) addresses.push_back(at.address);
    }
    return addresses;
}

std::vector<Answer> ask(const BusStatsOptions& options) {
    const char* const url = url_or_null(options.bus);
    std::vector<Answer> answers;
    for (const std::uint32_t address : options.addresses.empty() ? open_addresses(url) : options.addresses) {
        vorn_bus_counters counters = vorn_bus_counters_init();
        const std::int32_t result =
            vorn_bus_ask_counters(url, address, milliseconds(options.timeout_s), &counters);
        if (result == VORN_BUS_OK) {
            answers.push_back({address, counters});
        } else {
            report("nac: address {}: {}", address, vorn_bus_result_text(result));
            answers.push_back({address, std::nullopt});
        }
    }
    return answers;
}

std::string table(const std::vector<Answer>& answers) {
    std::string text;
    for (const Answer& answer : answers) {
        if (!answer.counters) continue;
        text += fmt::format("address {}\n", answer.address);
        for (const Counter& counter : kCounters)
            text += fmt::format("  {:<18} {:>12}\n", counter.name, (*answer.counters).*counter.value);
    }
    return text;
}

std::string json_lines(const std::vector<Answer>& answers) {
    std::string text;
    for (const Answer& answer : answers) {
        if (!answer.counters) continue;
        Json line = {{"address", answer.address}};
        for (const Counter& counter : kCounters) line[counter.name] = (*answer.counters).*counter.value;
        text += json_text(line) + "\n";
    }
    return text;
}

std::string openmetrics(const std::vector<Answer>& answers) {
    std::string text =
        "# HELP vorn_bus_up Whether the bus at the address answers\n# TYPE vorn_bus_up gauge\n";
    for (const Answer& answer : answers) {
        text += fmt::format("vorn_bus_up{{address=\"{}\"}} {}\n", answer.address, answer.counters ? 1 : 0);
    }
    for (const Counter& counter : kCounters) {
        text += fmt::format("# HELP vorn_bus_{0} {1}\n# TYPE vorn_bus_{0} {2}\n", counter.name, counter.help,
                            counter.is_gauge ? "gauge" : "counter");
        for (const Answer& answer : answers) {
            if (!answer.counters) continue;
            text += fmt::format("vorn_bus_{}{}{{address=\"{}\"}} {}\n", counter.name,
                                counter.is_gauge ? "" : "_total", answer.address,
                                (*answer.counters).*counter.value);
        }
    }
    return text + "# EOF\n";
}

// A file is replaced in one step: who reads it sees all of one time.
void write(const std::string& text, const std::string& file) {
    if (file.empty() || file == "-") {
        Output(file).write(text);
        return flush_standard_output();
    }
    const std::string made = file + ".new";
    Output output(made);
    output.write(text);
    output.finish();
    if (std::rename(made.c_str(), file.c_str()) != 0) {
        throw CommandError(kTrouble,
                           fmt::format("{}: {}", shown(file), std::generic_category().message(errno)));
    }
}

ExitCode run_bus_stats(const BusStatsOptions& options) {
    const auto every = std::chrono::duration<double>(options.watch_s);
    catch_interrupts();
    for (;;) {
        const auto next = std::chrono::steady_clock::now() + every;
        const std::vector<Answer> answers = ask(options);
        write(options.openmetrics ? openmetrics(answers)
              : options.json      ? json_lines(answers)
                                  : table(answers),
              options.output);
        const bool all = std::all_of(answers.begin(), answers.end(),
                                     [](const Answer& answer) { return answer.counters.has_value(); });
        if (options.watch_s == 0) return all ? kOk : kTrouble;
        while (std::chrono::steady_clock::now() < next) {
            if (is_interrupted()) return kOk;
            std::this_thread::sleep_for(20ms);
        }
    }
}

}  // namespace

void add_bus(CLI::App& command, Chosen& /*chosen*/) { command.require_subcommand(1); }

void add_bus_stats(CLI::App& command, Chosen& chosen) {
    auto [verb, options] = add_verb(command, chosen, run_bus_stats);
    verb.add_option("ADDRESS", options.addresses, "Whose; all that are open if not given")
        ->transform(bus_address());
    verb.add_option("--bus", options.bus, kBusHelp);
    CLI::Option* const json = verb.add_flag("--json", options.json, kJsonHelp);
    verb.add_flag("--openmetrics", options.openmetrics, "As Prometheus reads it")->excludes(json);
    verb.add_option("-o,--output", options.output,
                    "Where it goes, a file that is replaced in one step; standard output if not given")
        ->type_name("FILE");
    verb.add_option("--watch", options.watch_s,
                    "Again each time that this number of seconds is over, until it is interrupted")
        ->transform(seconds());
    verb.add_option("--timeout", options.timeout_s, "Seconds to wait for an answer, 1 if not given")
        ->transform(seconds());
}

}  // namespace tool
