// SPDX-License-Identifier: Apache-2.0
// nac exchange: every record goes through the library's own send and unpack functions, over a bus within the
// tool.
#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <memory_resource>
#include <string>
#include <utility>
#include <vector>

#include "bus/send.h"
#include "tool/io/json_lines.h"
#include "tool/io/open_bus.h"
#include "tool/message/host_services.h"
#include "tool/message/message_type.h"
#include "tool/show/brief.h"
#include "tool/show/shown.h"
#include "tool/verb.h"

namespace tool {
namespace {

struct ExchangeOptions {
    std::vector<std::string> files;  // "-" is standard input
    bool json = false;
};

constexpr std::uint32_t kAddress = 1;  // sends to itself

// The records of one type, back to back as the send functions take them.
struct Records {
    std::vector<std::byte> storage;
    std::vector<std::string> origins;  // "file:line" of each
};

struct Input {
    std::pmr::monotonic_buffer_resource arrays;  // of all records
    std::map<const MessageType*, Records> by_type;
    std::vector<std::pair<const MessageType*, std::size_t>> in_order;  // type, and index into its records
};

const std::byte* record_at(const MessageType& type, const Records& records, std::size_t index) {
    return records.storage.data() + index * type.record_bytes;
}

void add_line(const JsonLine& line, Input& input) {
    Records& records = input.by_type[&line.type];
    const std::size_t start = records.storage.size();
    records.storage.resize(start + line.type.record_bytes);
    try {
        line.type.from_json(line.member("record"), records.storage.data() + start, input.arrays);
    } catch (const RecordError& error) {
        throw line.bad(fmt::format("{}.{}", line.type.name, error.what()));
    }
    input.in_order.emplace_back(&line.type, records.origins.size());
    records.origins.push_back(line.origin);
}

class Exchange {
  public:
    Exchange(const Input& input, bool json) : input_(input), json_(json), bus_("loop:", kAddress) {
        bus_.on_message([this](const vorn_bus_message& message) { receive(message); });
        show_log_lines();
        if (!json_) fmt::print("{:<7} {:<36} {:>6}  {}\n", "sent", "type", "bytes", "record");
    }

    ExitCode run() {
        for (const auto& [type, index] : input_.in_order) send(*type, index, 1);
        for (const auto& type : message_types()) {
            const auto found = input_.by_type.find(type.get());
            if (found != input_.by_type.end()) send_in_batches(*type, found->second.origins.size());
        }
        const std::uint64_t kept = live_blocks();
        const std::uint64_t log_lines = shown_log_lines();
        const bool all_well = differences_ == 0 && log_lines == 0 && kept == 0;
        const std::string totals = fmt::format(
            "{} records of {} types: {} arrived from single sends, {} from {} batches; {} differ, "
            "{} log lines, {} arrays not freed",
            input_.in_order.size(), input_.by_type.size(), single_arrivals_, batch_arrivals_, batches_,
            differences_, log_lines, kept);
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
        const Records& records = input_.by_type.at(&type);
        type_ = &type;
        expected_ = index;
        as_batch_ = as_batch;
        const std::byte* const first = record_at(type, records, index);
        const std::uint32_t result =
            as_batch ? type.send_batch(kAddress, first, count) : type.send(kAddress, first, count, 0);
        if (result != 0) {
            throw CommandError(kTrouble, fmt::format("{}: sending {} gave 0x{:08X}", records.origins[index],
                                                     type.name, result));
        }
        bus_.poll(0, 0);
        if (expected_ != index + count) {
            throw CommandError(kTrouble, fmt::format("{}: {} of {} records arrived", records.origins[index],
                                                     expected_ - index, count));
        }
    }

    // As few batches as the capacity of a batch allows; types that travel as images have no such limit.
    void send_in_batches(const MessageType& type, std::size_t count) {
        const Records& records = input_.by_type.at(&type);
        for (std::size_t first = 0; first < count;) {
            std::size_t end = first;
            std::uint64_t bytes = 0;
            while (end < count) {
                bytes += type.image_bytes ? 0 : type.packed_bytes(record_at(type, records, end));
                if (bytes > kaplo::kBatchAreaBytes) break;
                ++end;
            }
            if (end == first) {
                throw CommandError(kBadData, fmt::format("{}: {} packs to {} bytes, more than a batch holds",
                                                         records.origins[first], type.name, bytes));
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
        const Json received = type_->to_json(arrival.record);
        const Records& records = input_.by_type.at(type_);
        const Json sent = type_->to_json(record_at(*type_, records, index));
        const char* const how = as_batch_ ? "batch" : "single";
        if (json_) {
            const Json line = {
                {"type", type_->name}, {"sent", how}, {"bytes", arrival.packed_bytes}, {"record", received}};
            fmt::print("{}\n", json_text(line));
        } else {
            fmt::print("{:<7} {:<36} {:>6}  {}\n", how, type_->name, arrival.packed_bytes, summary(received));
        }
        if (arrival.message_id != type_->id || arrival.record_bytes != type_->record_bytes ||
            received != sent ||
            (arrival.flags & (VORN_BUS_VERIFIED | VORN_BUS_DAMAGED)) != VORN_BUS_VERIFIED) {
            ++differences_;
            report("nac: {}: {} arrived different: {}", records.origins[index], type_->name,
                   arrival.fault != nullptr ? arrival.fault
                                            : shortened(json_text(Json::diff(sent, received)), 1000));
        }
    }

    const Input& input_;
    bool json_;
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
    return Exchange(input, options.json).run();
}

}  // namespace

void add_exchange(CLI::App& command, Chosen& chosen) {
    auto [verb, options] = add_verb(command, chosen, run_exchange);
    verb.add_option("FILE", options.files, "Records as JSON lines; - is standard input")->required();
    verb.add_flag("--json", options.json, "What arrives as one JSON object a line");
    verb.footer(
        "Each record is sent singly, and all records of a type as one batch.\n"
        R"(A line: {"type": "Nac_SetPortMsg", "record": {"f0": 7, "f1": 1}}. Fields left out are zero.)");
}

}  // namespace tool
