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
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "tool/io/message_filter.h"
#include "tool/io/open_watch.h"
#include "tool/io/output.h"
#include "tool/message/finding.h"
#include "tool/message/message_type.h"
#include "tool/show/brief.h"
#include "tool/show/counted.h"
#include "tool/show/shown.h"
#include "tool/show/time_text.h"
#include "tool/verb.h"

namespace tool {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kShown = 10;

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
          watch_(options.watch),
          on_terminal_(isatty(STDOUT_FILENO) != 0 && !options.plain && !options.json && !options.messages),
          colour_(std::getenv("NO_COLOR") == nullptr) {}  // NOLINT(concurrency-mt-unsafe)

    ExitCode run() {
        if (options_.messages && !options_.json)
            fmt::print("{:<15} {:<13} {:<36} {:>6}  {}\n", "time", "from -> to", "type", "bytes", "record");
        watch_.run([this](const vorn_bus_watched& message) { take(message); },
                   [this] { return all_.messages; }, [this] { show_in_time(); });
        if (!options_.messages && Clock::now() != shown_) show();
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
        if (last_.size() < kShown) last_.push_back(line(message, type, whole));
    }

    void show_in_time() {
        flush_standard_output();
        if (options_.messages || Clock::now() - shown_ < std::chrono::duration<double>(options_.interval_s))
            return;
        show();
        flush_standard_output();
    }

    void show() {
        const auto now = Clock::now();
        const double seconds = std::max(std::chrono::duration<double>(now - shown_).count(), 1e-6);
        shown_ = now;
        std::vector<std::pair<std::uint32_t, Row>> rows(rows_.begin(), rows_.end());
        std::stable_sort(rows.begin(), rows.end(), [](const auto& left, const auto& right) {
            return left.second.messages - left.second.messages_before >
                   right.second.messages - right.second.messages_before;
        });
        if (options_.json) {
            show_json(rows, seconds);
        } else if (on_terminal_) {
            show_table(rows, seconds);
        } else {
            show_lines(rows, seconds);
        }
        for (auto& [id, row] : rows_) {
            row.messages_before = row.messages;
            row.bytes_before = row.bytes;
        }
        all_.messages_before = all_.messages;
        all_.bytes_before = all_.bytes;
        last_.clear();
    }

    static double rate(std::uint64_t now, std::uint64_t before, double seconds) {
        return static_cast<double>(now - before) / seconds;
    }

    using Rows = std::vector<std::pair<std::uint32_t, Row>>;

    void show_json(const Rows& rows, double seconds) const {
        const vorn_bus_watch_counters counters = watch_.counters();
        Json object = {{"seconds", watch_.seconds()},
                       {"receivers", counters.receivers},
                       {"messages", all_.messages},
                       {"bytes", all_.bytes},
                       {"damaged", all_.damaged},
                       {"messages_per_second", rate(all_.messages, all_.messages_before, seconds)},
                       {"bytes_per_second", rate(all_.bytes, all_.bytes_before, seconds)},
                       {"lost_batches", counters.lost_batches},
                       {"types", Json::array()}};
        for (const auto& [id, row] : rows) {
            object["types"].push_back(
                {{"type", find_message_type(id) != nullptr ? Json(type_name(id)) : Json(nullptr)},
                 {"id", id},
                 {"messages", row.messages},
                 {"bytes", row.bytes},
                 {"damaged", row.damaged},
                 {"messages_per_second", rate(row.messages, row.messages_before, seconds)},
                 {"bytes_per_second", rate(row.bytes, row.bytes_before, seconds)}});
        }
        fmt::print("{}\n", json_text(object));
    }

    // Only types of which something has come since the last time.
    void show_lines(const Rows& rows, double seconds) {
        for (const auto& [id, row] : rows) {
            if (row.messages == row.messages_before) continue;
            if (!std::exchange(heading_, true)) print_heading();
            print_row(type_name(id), row, seconds);
        }
    }

    void show_table(const Rows& rows, double seconds) const {
        const vorn_bus_watch_counters counters = watch_.counters();
        const char* const strong = colour_ ? "\033[1m" : "";
        const char* const usual = colour_ ? "\033[0m" : "";
        fmt::print(
            "\033[H\033[J{}{}, {:.0f} messages/s, {:.0f} bytes/s, {} lost{}\n", strong,
            counted(counters.receivers, "receiver"), rate(all_.messages, all_.messages_before, seconds),
            rate(all_.bytes, all_.bytes_before, seconds), counted(counters.lost_batches, "batch"), usual);
        print_heading();
        for (const auto& [id, row] : rows) print_row(type_name(id), row, seconds);
        fmt::print("\n");
        for (const std::string& text : last_) fmt::print("{}\n", text);
    }

    static void print_heading() {
        fmt::print("{:<37} {:>10} {:>12} {:>12} {:>12} {:>8}\n", "type", "messages", "bytes", "messages/s",
                   "bytes/s", "damaged");
    }
    static void print_row(const std::string& name, const Row& row, double seconds) {
        fmt::print("{:<37} {:>10} {:>12} {:>12.1f} {:>12.1f} {:>8}\n", name, row.messages, row.bytes,
                   rate(row.messages, row.messages_before, seconds),
                   rate(row.bytes, row.bytes_before, seconds), row.damaged);
    }

    const MonitorOptions& options_;
    const MessageFilter filter_;
    OpenWatch watch_;
    const bool on_terminal_;
    const bool colour_;
    bool heading_ = false;
    Row all_;
    std::map<std::uint32_t, Row> rows_;
    std::vector<std::string> last_;
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
    verb.footer("Exit code 1 if damaged messages were seen.");
}

}  // namespace tool
