// SPDX-License-Identifier: Apache-2.0
// nac monitor.
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "tool/io/interrupt.h"
#include "tool/io/message_filter.h"
#include "tool/io/open_watch.h"
#include "tool/io/output.h"
#include "tool/io/terminal.h"
#include "tool/message/finding.h"
#include "tool/message/message_type.h"
#include "tool/show/brief.h"
#include "tool/show/counted.h"
#include "tool/show/shown.h"
#include "tool/show/time_text.h"
#include "tool/show/traffic_view.h"
#include "tool/verb.h"

namespace tool {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostKept = 100;  // lines of messages, of which a screen has as many as fit

struct MonitorOptions {
    WatchOptions watch;
    FilterOptions filter;
    double interval_s = 1;
    bool messages = false;
    bool plain = false;
    Octets octets = Octets::automatic;
    bool json = false;
};

std::string time_of_day(std::uint64_t nanoseconds) {
    const auto second = static_cast<std::time_t>(nanoseconds / 1'000'000'000);
    return fmt::format("{:%H:%M:%S}.{:06}", fmt::localtime(second), nanoseconds % 1'000'000'000 / 1000);
}

class Monitor {
  public:
    explicit Monitor(const MonitorOptions& options)
        : options_(options),
          filter_(options.filter),
          on_terminal_(isatty(STDOUT_FILENO) != 0 && !options.plain && !options.json && !options.messages),
          watch_options_(watch_options(options.watch, on_terminal_)),
          watch_(watch_options_),
          colour_(std::getenv("NO_COLOR") == nullptr) {  // NOLINT(concurrency-mt-unsafe)
        if (on_terminal_) keys_.emplace();
    }

    ExitCode run() {
        if (options_.messages && !options_.json)
            fmt::print("{:<15} {:<13} {:<36} {:>6}  {}\n", "time", "from -> to", "type", "bytes", "record");
        watch_.run([this](const vorn_bus_watched& message) { take(message); },
                   [this] { return all_.messages; }, [this] { idle(); });
        if (!options_.messages) show();
        if (on_terminal_) fmt::print("\n");
        flush_standard_output();
        keys_.reset();
        const vorn_bus_watch_counters counters = watch_.counters();
        report("{} seen, {}, {} damaged; {} left out, {} lost on the way here",
               counted(all_.messages, "message"), counted(all_.bytes, "byte"), all_.damaged, left_out_,
               counted(counters.lost_batches, "batch"));
        if (all_.messages < options_.watch.count) {
            throw CommandError(kTrouble,
                               fmt::format("{} of {} did not arrive", options_.watch.count - all_.messages,
                                           counted(options_.watch.count, "message")));
        }
        return all_.damaged == 0 ? kOk : kBadData;
    }

  private:
    // The screen has the number of receivers.
    static WatchOptions watch_options(WatchOptions options, bool on_terminal) {
        options.is_silent = on_terminal && isatty(STDERR_FILENO) != 0;
        return options;
    }

    struct Row {
        std::uint64_t messages = 0;
        std::uint64_t bytes = 0;
        std::uint64_t damaged = 0;
        std::uint64_t messages_before = 0;  // at the last show
        std::uint64_t bytes_before = 0;
    };

    void take(const vorn_bus_watched& message) {
        const std::span bytes(message.packed, message.packed_bytes);
        if (!filter_.passes(message.message_id, message.source, message.destination, bytes)) {
            ++left_out_;
            return;
        }
        const MessageType* const type = find_message_type(message.message_id);
        const bool whole = type == nullptr || is_valid(*type, bytes);
        for (Row* const row : {&all_, &rows_[message.message_id]}) {
            ++row->messages;
            row->bytes += bytes.size();
            row->damaged += whole ? 0 : 1;
        }
        if (options_.messages) {
            print(message, type, whole);
        } else if (on_terminal_) {
            keep(message, type, whole);
        }
    }

    std::string line(const vorn_bus_watched& message, const MessageType* type, bool whole) const {
        const std::string addresses = fmt::format("{} -> {}", message.source, message.destination);
        const std::span<const std::uint8_t> bytes = {message.packed, message.packed_bytes};
        return fmt::format("{:<15} {:<13} {:<36} {:>6}  {}", time_of_day(message.time), addresses,
                           type_name(message.message_id), message.packed_bytes,
                           type == nullptr ? "unknown"
                           : whole         ? summary(*type, Unpacked(*type, bytes).record(), options_.octets)
                                           : fmt::format("damaged: {}", fault_texts(*type, bytes).front()));
    }

    void print(const vorn_bus_watched& message, const MessageType* type, bool whole) const {
        if (!options_.json) {
            fmt::print("{}\n", line(message, type, whole));
            return;
        }
        Json object = {{"time", time_text(message.time)},
                       {"from", message.source},
                       {"to", message.destination},
                       {"target", message.target},
                       {"position", message.position},
                       {"count", message.count},
                       {"id", message.message_id},
                       {"type", type != nullptr ? Json(type->name) : Json(nullptr)},
                       {"bytes", message.packed_bytes},
                       {"verdict", type == nullptr ? "unknown"
                                   : whole         ? "ok"
                                                   : "damaged"},
                       {"record", nullptr},
                       {"faults", Json::array()}};
        if (type != nullptr) {
            const std::span<const std::uint8_t> bytes = {message.packed, message.packed_bytes};
            // Empty where there are too few bytes for any field.
            const Unpacked unpacked(*type, bytes);
            const bool has_fields = unpacked.verdict() != VORN_VERDICT_ARGUMENT;
            object["record"] = has_fields ? unpacked.json(kSummaryElements) : Json::object();
            add_texts(object, *type, unpacked.record(), options_.octets, kSummaryElements);
            if (!whole) object["faults"] = fault_texts(*type, bytes);
        }
        fmt::print("{}\n", json_text(object));
    }

    // The first few of each interval, for the lines below the table.
    void keep(const vorn_bus_watched& message, const MessageType* type, bool whole) {
        if (last_.size() < kMostKept) last_.push_back(line(message, type, whole));
    }

    void idle() {
        flush_standard_output();
        if (options_.messages) return;
        if (on_terminal_) take_keys();
        if (Clock::now() - shown_ < std::chrono::duration<double>(options_.interval_s)) return;
        show();
        flush_standard_output();
    }

    void take_keys() {
        while (const std::optional<char> key = keys_->next()) {
            const TrafficView::Wish wish = view_.take_key(*key);
            if (wish == TrafficView::Wish::quit) interrupt();
            if (wish == TrafficView::Wish::redraw) draw();
        }
    }

    static TypeTraffic traffic_of(std::uint32_t id, const Row& row, double seconds) {
        const auto rate = [seconds](std::uint64_t now, std::uint64_t before) {
            return static_cast<double>(now - before) / seconds;
        };
        return {id,
                type_name(id),
                row.messages,
                row.bytes,
                row.damaged,
                rate(row.messages, row.messages_before),
                rate(row.bytes, row.bytes_before),
                row.messages != row.messages_before};
    }

    void show() {
        if (view_.is_paused()) return;
        const auto now = Clock::now();
        const double seconds = std::max(std::chrono::duration<double>(now - shown_).count(), 1e-6);
        shown_ = now;
        const vorn_bus_watch_counters counters = watch_.counters();
        traffic_ = {traffic_of(0, all_, seconds),
                    {},
                    std::move(last_),
                    counters.receivers,
                    counters.lost_batches,
                    watch_.seconds()};
        last_.clear();
        for (auto& [id, row] : rows_) {
            traffic_.types.push_back(traffic_of(id, row, seconds));
            row.messages_before = row.messages;
            row.bytes_before = row.bytes;
        }
        all_.messages_before = all_.messages;
        all_.bytes_before = all_.bytes;
        sort_by_rate(traffic_.types);
        if (options_.json) {
            print_json();
        } else if (on_terminal_) {
            draw();
        } else {
            print_lines();
        }
    }

    void draw() const {
        fmt::print("{}", view_.screen(traffic_, terminal_size(), colour_));
        flush_standard_output();
    }

    void print_json() const {
        Json object = {{"seconds", traffic_.seconds},
                       {"receivers", traffic_.receivers},
                       {"messages", traffic_.all.messages},
                       {"bytes", traffic_.all.bytes},
                       {"damaged", traffic_.all.damaged},
                       {"messages_per_second", traffic_.all.messages_per_second},
                       {"bytes_per_second", traffic_.all.bytes_per_second},
                       {"lost_batches", traffic_.lost_batches},
                       {"types", Json::array()}};
        for (const TypeTraffic& type : traffic_.types) {
            object["types"].push_back(
                {{"type", find_message_type(type.id) != nullptr ? Json(type.name) : Json(nullptr)},
                 {"id", type.id},
                 {"messages", type.messages},
                 {"bytes", type.bytes},
                 {"damaged", type.damaged},
                 {"messages_per_second", type.messages_per_second},
                 {"bytes_per_second", type.bytes_per_second}});
        }
        fmt::print("{}\n", json_text(object));
    }

    // Only types of which something has come since the last time.
    void print_lines() {
        for (const TypeTraffic& type : traffic_.types) {
            if (!type.is_fresh) continue;
            if (!std::exchange(heading_, true)) fmt::print("{}\n", traffic_heading());
            fmt::print("{}\n", traffic_row(type));
        }
    }

    const MonitorOptions& options_;
    const MessageFilter filter_;
    const bool on_terminal_;
    const WatchOptions watch_options_;
    OpenWatch watch_;
    const bool colour_;
    bool heading_ = false;
    Row all_;
    std::map<std::uint32_t, Row> rows_;
    std::vector<std::string> last_;
    Traffic traffic_;  // as it was shown last
    TrafficView view_;
    std::optional<Keys> keys_;
    Clock::time_point shown_ = Clock::now();
    std::uint64_t left_out_ = 0;
};

ExitCode run_monitor(const MonitorOptions& options) { return Monitor(options).run(); }

}  // namespace

void add_monitor(CLI::App& command, Chosen& chosen) {
    auto [verb, options] = add_verb(command, chosen, run_monitor);
    add_watch_options(verb, options.watch);
    add_filter_options(verb, options.filter);
    verb.add_option("--interval", options.interval_s, "Seconds between two views, 1 if not given")
        ->transform(real_number(0.05, 3600));
    verb.add_flag("--messages", options.messages, "A line for each message, instead of rates");
    add_octets_option(verb, options.octets);
    verb.add_flag("--plain", options.plain, "Lines, on a terminal too");
    verb.add_flag("--json", options.json, "One JSON object a view, or a message");
    verb.footer(
        "On a terminal the view keeps to its size. Keys: q ends, s sorts by the next column, p pauses, / "
        "shows only "
        "what has a text.\nExit code 1 if damaged messages were seen.");
}

}  // namespace tool
