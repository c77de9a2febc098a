// SPDX-License-Identifier: Apache-2.0
// nac replay.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tool/io/capture_summary.h"
#include "tool/io/interrupt.h"
#include "tool/io/message_filter.h"
#include "tool/io/open_bus.h"
#include "tool/io/open_watch.h"
#include "tool/io/progress.h"
#include "tool/show/counted.h"
#include "tool/show/shown.h"
#include "tool/verb.h"

namespace tool {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostBuses = 256;

struct ReplayOptions {
    std::vector<std::string> files;
    FilterOptions filter;
    std::string bus;
    std::string speed = "1";
    std::optional<std::uint32_t> as;
    std::optional<std::uint32_t> redirect;
    std::uint64_t repeat = 1;
    bool receive = false;
    double timeout_s = 10;
    double delay_s = 0;
    bool json = false;
};

// Factor of the recorded speed; 0: as fast as it is taken.
double speed_of(const std::string& text) {
    if (text == "max") return 0;
    try {
        std::size_t used = 0;
        const double speed = std::stod(text, &used);
        if (used == text.size() && speed > 0 && speed <= 1e9) return speed;
    } catch (const std::logic_error&) {
    }
    throw CommandError(kBadUsage, fmt::format("--speed {}: not a number above 0, and not \"max\"", text));
}

class Replay {
  public:
    explicit Replay(const ReplayOptions& options)
        : options_(options),
          speed_(speed_of(options.speed)),
          filter_(options.filter),
          is_loop_(std::string(vorn_bus_display_url(url_or_null(options.bus))).compare(0, 5, "loop:") == 0),
          receives_(options.receive || is_loop_),
          progress_(options.files, options.repeat) {
        catch_interrupts();
    }

    ExitCode run() {
        for (const std::string& file : options_.files) check(file);
        for (std::uint64_t round = 0; round < options_.repeat && !is_interrupted(); ++round) {
            offset_.reset();
            for (const std::string& file : options_.files) play(file);
        }
        finish();
        print_totals();
        return complaints_.empty() ? kOk : kBadData;
    }

  private:
    struct Collected {
        std::uint32_t id;
        std::size_t offset;
        std::uint32_t length;
    };

    // Before anything is sent: that all of it can be read, and what it is.
    void check(const std::string& file) const {
        if (file == "-") return;
        CaptureReader reader(file);
        CaptureSummary summary;
        CapturedMessage message;
        while (!is_interrupted() && reader.next(message)) {
            if (passes(message, reader)) summary.add(message, reader.packets());
        }
        report("{}: {}; {:.3f} s", file, summary.counts(), summary.seconds());
        report_foreign_packets(reader);
        if (summary.sources() > (options_.as ? SIZE_MAX : kMostBuses)) throw too_many_addresses();
    }

    bool passes(const CapturedMessage& message, const CaptureReader& reader) const {
        return filter_.takes_packet(reader.packets()) &&
               filter_.passes(message.id, message.source, message.destination, message.bytes);
    }

    void play(const std::string& file) {
        CaptureReader reader(file);
        CapturedMessage message;
        while (!is_interrupted() && reader.next(message)) {
            progress_.add(reader.block_bytes());
            if (!passes(message, reader)) {
                ++left_out_;
                continue;
            }
            if (!messages_.empty() && message.batch != batch_.batch) send();
            if (messages_.empty()) {
                batch_ = message;
                origin_ = fmt::format("{}: packet {}", reader.name(), reader.packets());
            }
            if (message.is_cut()) batch_is_cut_ = true;
            messages_.push_back(
                {message.id, bytes_.size(), static_cast<std::uint32_t>(message.bytes.size())});
            bytes_.insert(bytes_.end(), message.bytes.begin(), message.bytes.end());
        }
        if (!is_interrupted()) send();
        if (reader.complaint().empty()) return;
        complaints_.push_back(fmt::format("{}: {}", reader.name(), reader.complaint()));
        report("nac: {}", complaints_.back());
    }

    // Sends the batch that is collected as one call.
    void send() {
        if (messages_.empty()) return;
        if (batch_is_cut_) {
            cut_ += messages_.size();
        } else {
            const std::uint32_t destination = options_.redirect.value_or(batch_.destination);
            if (receives_) receiver(destination);
            if (sent_batches_ == 0) begin();
            wait_for(batch_.time);
            descriptors_.clear();
            for (const Collected& message : messages_)
                descriptors_.push_back({bytes_.data() + message.offset, message.id, message.length});
            const std::int32_t result = vorn_bus_send(
                sender(options_.as.value_or(batch_.source)).get(), destination, descriptors_.data(),
                static_cast<std::uint32_t>(descriptors_.size()), batch_.target);
            if (result != VORN_BUS_OK)
                throw bus_error(fmt::format("{}: to address {}", origin_, destination), result);
            ++sent_batches_;
            sent_messages_ += messages_.size();
            sent_bytes_ += bytes_.size();
        }
        messages_.clear();
        bytes_.clear();
        batch_is_cut_ = false;
    }

    void begin() {
        const auto due = Clock::now() + std::chrono::duration<double>(options_.delay_s);
        while (!is_interrupted() && Clock::now() < due) std::this_thread::sleep_for(10ms);
        begun_ = Clock::now();
    }

    void wait_for(std::uint64_t time) {
        if (speed_ == 0) return;
        const auto at = std::chrono::nanoseconds(time);
        if (!offset_) {
            offset_ = at;
            begun_round_ = Clock::now();
        }
        const std::chrono::duration<double, std::nano> later = (at - *offset_) / speed_;
        const auto due = begun_round_ + std::chrono::duration_cast<Clock::duration>(later);
        while (!is_interrupted() && Clock::now() < due)
            std::this_thread::sleep_until(std::min(due, Clock::now() + 100ms));
    }

    OpenBus& sender(std::uint32_t address) {
        // Where the tool receives at this address too, it sends from there.
        if (const auto found = receivers_.find(address); found != receivers_.end()) return *found->second;
        return open(senders_, address);
    }

    void receiver(std::uint32_t address) {
        if (receivers_.contains(address)) return;
        if (auto known = senders_.extract(address); !known.empty()) receivers_.insert(std::move(known));
        OpenBus& bus = open(receivers_, address);
        bus.on_message([](const vorn_bus_message& /*message*/) {});
        if (const std::int32_t result = vorn_bus_start(bus.get()); result != VORN_BUS_OK)
            throw bus_error(fmt::format("receiving at address {}", address), result);
    }

    static CommandError too_many_addresses() {
        return {kBadUsage, fmt::format("the capture has more than {} addresses; send from one with --as, or "
                                       "choose some with --from and --to",
                                       kMostBuses)};
    }

    using Buses = std::map<std::uint32_t, std::unique_ptr<OpenBus>>;
    OpenBus& open(Buses& buses, std::uint32_t address) {
        auto& bus = buses[address];
        if (bus != nullptr) return *bus;
        if (senders_.size() + receivers_.size() > kMostBuses) {
            throw too_many_addresses();
        }
        try {
            bus = std::make_unique<OpenBus>(options_.bus, address, options_.timeout_s);
        } catch (const CommandError& error) {
            if (options_.as) throw;
            throw CommandError(error.code(),
                               fmt::format("{}; --as sends from another address", error.what()));
        }
        return *bus;
    }

    void finish() {
        for (Buses* const buses : {&senders_, &receivers_}) {
            for (const auto& [address, bus] : *buses) {
                const std::int32_t result = vorn_bus_flush(bus->get(), milliseconds(options_.timeout_s));
                const vorn_bus_counters counters = bus->counters();
                lost_ += counters.lost_batches;
                if (result == VORN_BUS_TIMEOUT) on_their_way_ += counters.unhandled_batches;
            }
        }
        seconds_ = std::chrono::duration<double>(Clock::now() - begun_).count();
        const auto deadline =
            Clock::now() + std::chrono::duration<double>(receives_ ? options_.timeout_s : 0);
        do {
            received_ = 0;
            damaged_ = 0;
            for (const auto& [address, bus] : receivers_) {
                const vorn_bus_counters counters = bus->counters();
                received_ += counters.received_messages + counters.unknown_messages;
                damaged_ += counters.damaged_messages;
            }
            if (received_ < sent_messages_ && receives_) std::this_thread::sleep_for(1ms);
        } while (receives_ && received_ < sent_messages_ && Clock::now() < deadline);
    }

    void print_totals() const {
        const double rate = static_cast<double>(sent_messages_) / std::max(seconds_, 1e-9);
        report(
            "{} in {}, {}, sent in {:.3f} s: {:.0f} messages/s; {} left out, {} "
            "cut, {} lost, {} still on their way",
            counted(sent_messages_, "message"), counted(sent_batches_, "batch"), counted(sent_bytes_, "byte"),
            seconds_, rate, left_out_, cut_, counted(lost_, "batch"), on_their_way_);
        if (receives_)
            report("{} arrived within the tool, {} damaged", counted(received_, "message"), damaged_);
        if (options_.json) {
            const Json summary = {{"messages", sent_messages_},
                                  {"batches", sent_batches_},
                                  {"bytes", sent_bytes_},
                                  {"seconds", seconds_},
                                  {"messages_per_second", rate},
                                  {"left_out_messages", left_out_},
                                  {"cut_messages", cut_},
                                  {"lost_batches", lost_},
                                  {"batches_on_their_way", on_their_way_},
                                  {"arrived_messages", receives_ ? Json(received_) : Json(nullptr)},
                                  {"damaged_messages", receives_ ? Json(damaged_) : Json(nullptr)},
                                  {"complaints", complaints_}};
            fmt::print("{}\n", json_text(summary));
        }
        if (lost_ + on_their_way_ != 0) throw CommandError(kTrouble, "not all batches were handled");
        if (receives_ && received_ != sent_messages_)
            throw CommandError(
                kTrouble, fmt::format("{} did not arrive", counted(sent_messages_ - received_, "message")));
    }

    const ReplayOptions& options_;
    const double speed_;
    const MessageFilter filter_;
    const bool is_loop_;
    const bool receives_;
    Progress progress_;
    Buses receivers_;
    Buses senders_;
    Clock::time_point begun_ = Clock::now();
    Clock::time_point begun_round_;
    std::optional<std::chrono::nanoseconds> offset_;  // the capture's time when the round began

    // The batch that is collected.
    CapturedMessage batch_;
    bool batch_is_cut_ = false;
    std::string origin_;
    std::vector<Collected> messages_;
    std::vector<std::uint8_t> bytes_;
    std::vector<VORN_SendDescriptor> descriptors_;

    std::uint64_t sent_batches_ = 0;
    std::uint64_t sent_messages_ = 0;
    std::uint64_t sent_bytes_ = 0;
    std::uint64_t left_out_ = 0;
    std::uint64_t cut_ = 0;
    std::uint64_t lost_ = 0;
    std::uint64_t on_their_way_ = 0;
    std::uint64_t received_ = 0;
    std::uint64_t damaged_ = 0;
    double seconds_ = 0;
    std::vector<std::string> complaints_;
};

ExitCode run_replay(const ReplayOptions& options) { return Replay(options).run(); }

}  // namespace

void add_replay(CLI::App& command, Chosen& chosen) {
    auto [verb, options] = add_verb(command, chosen, run_replay);
    verb.add_option("FILE", options.files, "Captures, also as gzip; - is standard input")->required();
    verb.add_option("--bus", options.bus, kBusHelp);
    verb.add_option("--speed", options.speed,
                    "Factor of the recorded speed, 1 if not given; max: as fast as it is taken");
    verb.add_option("--as", options.as, "Send from this address, instead of from those of the capture")
        ->transform(bus_address());
    verb.add_option("--redirect", options.redirect,
                    "Send to this address, instead of to those of the capture")
        ->transform(bus_address());
    verb.add_option("--repeat", options.repeat, "How many times, 1 if not given")->transform(whole_number(1));
    verb.add_flag("--receive", options.receive,
                  "Receive at the destinations within the tool, and count; always so on loop:");
    verb.add_option("--delay", options.delay_s,
                    "Seconds to wait before the first message, so that watchers find the receivers")
        ->transform(seconds());
    verb.add_option("--timeout", options.timeout_s, "Seconds to wait for a receiver, 10 if not given")
        ->transform(seconds());
    add_filter_options(verb, options.filter);
    add_packet_option(verb, options.filter);
    verb.add_flag("--json", options.json, "The totals as a JSON object on standard output");
    verb.footer("Messages that were cut when they were recorded are left out, with their batches.");
}

}  // namespace tool
