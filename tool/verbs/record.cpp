// SPDX-License-Identifier: Apache-2.0
// nac record.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <string>

#include "tool/io/capture_writer.h"
#include "tool/io/message_filter.h"
#include "tool/io/open_watch.h"
#include "tool/show/counted.h"
#include "tool/show/shown.h"
#include "tool/verb.h"

namespace tool {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

struct RecordOptions {
    WatchOptions watch;
    FilterOptions filter;
    std::string output;
    std::uint64_t split_bytes = 0;
    std::uint32_t snapshot_bytes = kUsualSnapshotBytes;
    bool json = false;
};

class Recorder {
  public:
    explicit Recorder(const RecordOptions& options)
        : options_(options),
          filter_(options.filter),
          watch_(options.watch),
          writer_(options.output, options.split_bytes, options.snapshot_bytes) {}

    ExitCode run() {
        report("recording into {}", options_.output == "-" ? "standard output" : options_.output);
        watch_.run([this](const vorn_bus_watched& message) { take(message); },
                   [this] { return writer_.messages(); }, [this] { flush(); });
        const vorn_bus_watch_counters counters = watch_.counters();
        writer_.finish(counters.lost_batches);
        print_totals(counters);
        if (writer_.messages() < options_.watch.count) {
            throw CommandError(
                kTrouble, fmt::format("{} of {} did not arrive", options_.watch.count - writer_.messages(),
                                      counted(options_.watch.count, "message")));
        }
        return counters.lost_batches == 0 ? kOk : kTrouble;
    }

  private:
    void take(const vorn_bus_watched& message) {
        if (message.position == 0) ++batch_;
        const std::span bytes(message.packed, message.packed_bytes);
        if (!filter_.passes(message.message_id, message.source, message.destination, bytes)) {
            ++left_out_;
            return;
        }
        writer_.write({message.time, batch_, message.target, message.message_id, message.source,
                       message.destination, 0, message.position, message.count, message.packed_bytes, bytes});
    }

    // So that whoever reads along sees what there is.
    void flush() {
        const auto now = Clock::now();
        if (now < next_flush_) return;
        next_flush_ = now + 200ms;
        writer_.flush();
    }

    void print_totals(const vorn_bus_watch_counters& counters) const {
        report("{} of {} recorded, {} in {}; {} left out, {} cut, {} lost, {}",
               counted(writer_.messages(), "message"), counted(counters.batches, "batch"),
               counted(writer_.bytes(), "byte"), counted(writer_.files().size(), "file"), left_out_,
               writer_.cut_messages(), counted(counters.lost_batches, "batch"),
               counted(counters.damaged, "damaged envelope"));
        if (counters.interruptions != 0)
            report("{} times a receiver or a server went and came again", counters.interruptions);
        if (!options_.json) return;
        const Json summary = {{"messages", writer_.messages()},
                              {"batches", counters.batches},
                              {"bytes", writer_.bytes()},
                              {"files", writer_.files()},
                              {"seconds", watch_.seconds()},
                              {"left_out_messages", left_out_},
                              {"cut_messages", writer_.cut_messages()},
                              {"lost_batches", counters.lost_batches},
                              {"damaged_envelopes", counters.damaged},
                              {"interruptions", counters.interruptions}};
        fmt::print("{}\n", json_text(summary));
    }

    const RecordOptions& options_;
    const MessageFilter filter_;
    OpenWatch watch_;
    CaptureWriter writer_;
    std::uint64_t batch_ = 0;
    std::uint64_t left_out_ = 0;
    Clock::time_point next_flush_;
};

ExitCode run_record(const RecordOptions& options) {
    if (options.output == "-" && (options.split_bytes != 0 || options.json)) {
        throw CommandError(kBadUsage,
                           "standard output takes the capture alone: neither --split-bytes nor --json");
    }
    return Recorder(options).run();
}

}  // namespace

void add_record(CLI::App& command, Chosen& chosen) {
    auto [verb, options] = add_verb(command, chosen, run_record);
    verb.add_option("-o,--output", options.output, "The file; - is standard output")->required();
    add_watch_options(verb, options.watch);
    add_filter_options(verb, options.filter);
    verb.add_option("--split-bytes", options.split_bytes,
                    "Begin another file, OUT-2.pcapng, before one has more bytes")
        ->transform(whole_number(1));
    verb.add_option("--snaplen", options.snapshot_bytes,
                    "Bytes of a packet that are kept; 262144, the most that Wireshark takes, if not given")
        ->transform(whole_number(kCaptureHeaderBytes, 64U << 20));
    verb.add_flag("--json", options.json, "The totals as a JSON object on standard output");
    verb.footer("Exit code 3 if copies of batches were lost on the way.");
}

}  // namespace tool
