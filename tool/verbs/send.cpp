// SPDX-License-Identifier: Apache-2.0
// nac send.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tool/io/json_lines.h"
#include "tool/io/open_bus.h"
#include "tool/io/progress.h"
#include "tool/message/host_services.h"
#include "tool/show/counted.h"
#include "tool/show/shown.h"
#include "tool/verb.h"

namespace tool {
namespace {

struct SendOptions {
    std::vector<std::string> files;  // "-" is standard input
    std::string bus;                 // empty: the usual URL
    std::uint32_t to = 0;
    std::optional<std::uint32_t> as;  // none: a pure sender
    std::uint64_t target = 0;
    bool batch = false;
    bool json = false;
    double rate = 0;        // records a second; 0: as fast as they are taken
    double timeout_s = 10;  // for each send, and for the last to be handled
};

using Clock = std::chrono::steady_clock;

class Sender {
  public:
    explicit Sender(const SendOptions& options)
        : options_(options),
          bus_(options.bus, options.as.value_or(0), options.timeout_s,
               options.as ? OpenBus::Role::receiver : OpenBus::Role::pure_sender),
          progress_(options.files) {}

    void add(const JsonLine& line) {
        if (records_ && (!options_.batch || &records_->type() != &line.type)) send();
        Records one(line.type);
        add_record(line, line.member("record"), one);
        const std::uint32_t bytes = sent_bytes(line.type, one[0]);
        if (records_ && bytes_ + bytes > kBatchBytes) send();
        if (!records_) {
            records_.emplace(line.type);
            origin_ = line.origin;
        }
        bytes_ += bytes;
        records_->append(std::move(one));
        progress_.add(line.bytes);
    }

    ExitCode finish() {
        send();
        const std::int32_t flushed = vorn_bus_flush(bus_.get(), milliseconds(options_.timeout_s));
        const vorn_bus_counters counters = bus_.counters();
        if (options_.json) {
            const Json object = {{"to", options_.to},
                                 {"sent_messages", counters.sent_messages},
                                 {"sent_batches", counters.sent_batches},
                                 {"lost_batches", counters.lost_batches},
                                 {"unhandled_batches", counters.unhandled_batches}};
            fmt::print("{}\n", json_text(object));
        }
        report("{} sent to address {} in {}; {} lost, {} still on their way",
               counted(counters.sent_messages, "record"), options_.to,
               counted(counters.sent_batches, "batch"), counters.lost_batches, counters.unhandled_batches);
        if (flushed != VORN_BUS_OK) throw bus_error(fmt::format("address {}", options_.to), flushed);
        return kOk;
    }

  private:
    // Sends what is collected: one batch.
    void send() {
        if (!records_) return;
        const MessageType& type = records_->type();
        const auto count = static_cast<std::uint32_t>(records_->size());
        if (options_.rate > 0) {
            std::this_thread::sleep_until(next_);
            next_ = std::max(next_, Clock::now() - std::chrono::seconds(1)) +
                    std::chrono::duration_cast<Clock::duration>(
                        std::chrono::duration<double>(count / options_.rate));
        }
        const std::uint32_t result = type.send(options_.to, (*records_)[0], count, options_.target);
        if (result != VORN_BUS_OK) {
            throw bus_error(fmt::format("{}: {} to address {}", origin_, type.name, options_.to),
                            static_cast<std::int32_t>(result));
        }
        records_.reset();
        bytes_ = 0;
    }

    const SendOptions& options_;
    OpenBus bus_;
    Progress progress_;
    Clock::time_point next_ = Clock::now();

    // The batch that is collected.
    std::optional<Records> records_;
    std::string origin_;
    std::uint64_t bytes_ = 0;
};

ExitCode run_send(const SendOptions& options) {
    show_log_lines();
    Sender sender(options);
    for_each_line(options.files, [&sender](const JsonLine& line) { sender.add(line); });
    return sender.finish();
}

}  // namespace

void add_send(CLI::App& command, Chosen& chosen) {
    auto [verb, options] = add_verb(command, chosen, run_send);
    verb.add_option("FILE", options.files, "Records as JSON lines; - is standard input")->required();
    verb.add_option("--to", options.to, "Address of the receiver")->required()->transform(bus_address());
    verb.add_option("--as", options.as,
                    "Address that the sender takes; if not given none, and it sends from 0")
        ->transform(bus_address());
    verb.add_option("--target", options.target, "Target passed on with each message")
        ->transform(whole_number());
    verb.add_option("--bus", options.bus, kBusHelp);
    verb.add_flag("--batch", options.batch, "Neighbouring records of a type travel as one batch");
    verb.add_flag("--json", options.json, "What was sent and what was lost, as a JSON object");
    verb.add_option("--rate", options.rate, "Records a second; as fast as they are taken if not given")
        ->transform(real_number(0.001, 1e9));
    verb.add_option("--timeout", options.timeout_s, "Seconds to wait for the receiver, 10 if not given")
        ->transform(seconds());
}

}  // namespace tool
