// SPDX-License-Identifier: Apache-2.0
// nac exchange: every record goes through the library's own send and unpack functions, over a bus within the
// tool.
#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tool/io/json_lines.h"
#include "tool/io/open_bus.h"
#include "tool/message/host_services.h"
#include "tool/message/message_type.h"
#include "tool/show/brief.h"
#include "tool/show/counted.h"
#include "tool/show/shown.h"
#include "tool/verb.h"

namespace tool {
namespace {

struct ExchangeOptions {
    std::vector<std::string> files;  // "-" is standard input
    Octets octets = Octets::automatic;
    bool json = false;
};

constexpr std::uint32_t kAddress = 1;  // sends to itself

// The records of one type.
struct Given {
    explicit Given(const MessageType& type) : records(type) {}
    Records records;
    std::vector<std::string> origins;  // "file:line" of each
};

struct Input {
    std::map<const MessageType*, Given> by_type;
    std::vector<std::pair<const MessageType*, std::size_t>> in_order;  // type, and index into its records
};

void add_line(const JsonLine& line, Input& input) {
    Given& given = input.by_type.try_emplace(&line.type, line.type).first->second;
    add_record(line, line.member("record"), given.records);
    input.in_order.emplace_back(&line.type, given.origins.size());
    given.origins.push_back(line.origin);
}

class Exchange {
  public:
    Exchange(const Input& input, const ExchangeOptions& options)
        : input_(input), json_(options.json), octets_(options.octets), bus_("loop:", kAddress) {
        bus_.on_message([this](const vorn_bus_message& message) { receive(message); });
        show_log_lines();
        if (!json_) fmt::print("{:<7} {:<36} {:>6}  {}\n", "sent", "type", "bytes", "record");
    }

    ExitCode run() {
        for (const auto& [type, index] : input_.in_order) send(*type, index, 1);
        for (const auto& type : message_types()) {
            const auto found = input_.by_type.find(type);
            if (found != input_.by_type.end()) send_in_batches(*type, found->second.origins.size());
        }
        const std::uint64_t kept = live_blocks();
        const std::uint64_t log_lines = shown_log_lines();
        const bool all_well = differences_ == 0 && log_lines == 0 && kept == 0;
        const std::string totals =
            fmt::format("{} of {}: {} arrived from single sends, {} from {}; {} differ, {}, {} not freed",
                        counted(input_.in_order.size(), "record"), counted(input_.by_type.size(), "type"),
                        single_arrivals_, batch_arrivals_, counted(batches_, "batch"), differences_,
                        counted(log_lines, "log line"), counted(kept, "array"));
        if (json_) {
            report_line(totals);
        } else {
            fmt::print("{}\n", totals);
        }
        return all_well ? kOk : kBadData;
    }

  private:
    // Sends `count` records from `index` on: one of them singly, or all as one batch.
    void send(const MessageType& type, std::size_t index, std::uint32_t count, bool as_batch = false) {
        const Given& given = input_.by_type.at(&type);
        type_ = &type;
        expected_ = index;
        as_batch_ = as_batch;
        const auto send = as_batch ? type.send_batch : type.send;
        const std::uint32_t result = send(kAddress, given.records[index], count, 0);
        if (result != 0) {
            throw CommandError(kTrouble, fmt::format("{}: sending {} gave 0x{:08X}", given.origins[index],
                                                     type.name, result));
        }
        bus_.poll(0, 0);
        if (expected_ != index + count) {
            throw CommandError(kTrouble, fmt::format("{}: {} of {} records arrived", given.origins[index],
                                                     expected_ - index, count));
        }
    }

    // As few batches as the capacity of a batch allows; types that travel as images have no such limit.
    void send_in_batches(const MessageType& type, std::size_t count) {
        const Given& given = input_.by_type.at(&type);
        for (std::size_t first = 0; first < count;) {
            std::size_t end = first;
            std::uint64_t bytes = 0;
            while (end < count) {
                bytes += type.image_bytes != 0 ? 0 : sent_bytes(type, given.records[end]);
                if (bytes > kBatchBytes) break;
                ++end;
            }
            if (end == first) {
                throw CommandError(kBadData, fmt::format("{}: {} packs to {} bytes, more than a batch holds",
                                                         given.origins[first], type.name, bytes));
            }
            send(type, first, static_cast<std::uint32_t>(end - first), true);
            ++batches_;
            first = end;
        }
    }

    void receive(const vorn_bus_message& arrival) {
        const std::size_t index = expected_;
        if (index >= input_.by_type.at(type_).origins.size()) {
            throw CommandError(kTrouble, fmt::format("{}: more records arrived than were sent", type_->name));
        }
        ++expected_;
        ++(as_batch_ ? batch_arrivals_ : single_arrivals_);
        const Json received = to_json(*type_, arrival.record);
        const Given& given = input_.by_type.at(type_);
        const Json sent = to_json(*type_, given.records[index]);
        const char* const how = as_batch_ ? "batch" : "single";
        if (json_) {
            Json line = {
                {"type", type_->name}, {"sent", how}, {"bytes", arrival.packed_bytes}, {"record", received}};
            add_texts(line, *type_, arrival.record, octets_);
            fmt::print("{}\n", json_text(line));
        } else {
            fmt::print("{:<7} {:<36} {:>6}  {}\n", how, type_->name, arrival.packed_bytes,
                       summary(*type_, arrival.record, octets_));
        }
        if (arrival.message_id != type_->id || arrival.record_bytes != type_->record_bytes ||
            received != sent ||
            (arrival.flags & (VORN_BUS_VERIFIED | VORN_BUS_DAMAGED)) != VORN_BUS_VERIFIED) {
            ++differences_;
            report("nac: {}: {} arrived different: {}", given.origins[index], type_->name,
                   arrival.fault != nullptr ? arrival.fault
                                            : shortened(json_text(Json::diff(sent, received)), 1000));
        }
    }

    const Input& input_;
    bool json_;
    Octets octets_;
    OpenBus bus_;
    const MessageType* type_ = nullptr;  // being sent
    std::size_t expected_ = 0;           // index of the record that arrives next
    bool as_batch_ = false;
    std::size_t single_arrivals_ = 0;
    std::size_t batch_arrivals_ = 0;
    std::size_t batches_ = 0;
    std::size_t differences_ = 0;
};

ExitCode run_exchange(const ExchangeOptions& options) {
    Input input;
    for_each_line(options.files, [&input](const JsonLine& line) { add_line(line, input); });
    return Exchange(input, options).run();
}

}  // namespace

void add_exchange(CLI::App& command, Chosen& chosen) {
    auto [verb, options] = add_verb(command, chosen, run_exchange);
    verb.add_option("FILE", options.files, "Records as JSON lines; - is standard input")->required();
    add_octets_option(verb, options.octets);
    verb.add_flag("--json", options.json, "What arrives as one JSON object a line");
    verb.footer(
        "Each record is sent singly, and all records of a type as one batch.\n"
        R"(A line: {"type": "Nac_SetPortMsg", "record": {"f0": 7, "f1": 1}}. Fields left out are zero.)");
}

}  // namespace tool
