// SPDX-License-Identifier: Apache-2.0
// nac info.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "inspect/byte_text.h"
#include "tool/io/capture.h"
#include "tool/io/message_filter.h"
#include "tool/io/progress.h"
#include "tool/message/record_json.h"
#include "tool/show/counted.h"
#include "tool/show/shown.h"
#include "tool/show/time_text.h"
#include "tool/verb.h"

namespace tool {
namespace {

constexpr std::size_t kDamagesShown = 20;

struct InfoOptions {
    std::vector<std::string> files;
    FilterOptions filter;
    bool json = false;
    bool messages = false;
};

struct Totals {
    std::uint64_t messages = 0;
    std::uint64_t bytes = 0;
    std::uint64_t damaged = 0;
};

struct Damage {
    std::uint64_t packet;
    std::string type;
    std::vector<std::string> faults;
};

// What one capture holds.
class Summary {
  public:
    void add(const CapturedMessage& message, std::uint64_t packet) {
        first_ = all_.messages == 0 ? message.time : std::min(first_, message.time);
        last_ = std::max(last_, message.time);
        if (all_.messages == 0 || message.batch != batch_) ++batches_;
        batch_ = message.batch;
        if (message.is_cut()) ++cut_;
        const bool whole = check(message, packet);
        for (Totals* const totals :
             {&all_, &types_[message.id], &pairs_[{message.source, message.destination}]}) {
            ++totals->messages;
            totals->bytes += message.bytes_on_bus;
            totals->damaged += whole ? 0 : 1;
        }
    }

    bool has_damage() const { return all_.damaged != 0; }

    Json to_json(const CaptureReader& reader) const {
        Json object = {{"file", reader.name()},
                       {"recorder", reader.recorder()},
                       {"messages", all_.messages},
                       {"batches", batches_},
                       {"bytes", all_.bytes},
                       {"damaged", all_.damaged},
                       {"unknown", unknown_},
                       {"cut", cut_},
                       {"first_time", time_or_null(first_)},
                       {"last_time", time_or_null(last_)},
                       {"seconds", seconds()},
                       {"messages_per_second", rate(all_.messages)},
                       {"bytes_per_second", rate(all_.bytes)},
                       {"lost_batches", reader.lost_batches()},
                       {"foreign_packets", reader.foreign_packets()},
                       {"complaint", reader.complaint().empty() ? Json(nullptr) : Json(reader.complaint())},
                       {"types", Json::array()},
                       {"addresses", Json::array()},
                       {"damages", Json::array()}};
        for (const auto& [id, totals] : by_number(types_)) {
            Json entry = {{"type", find_message_type(id) != nullptr ? Json(type_name(id)) : Json(nullptr)},
                          {"id", id}};
            object["types"].push_back(with(entry, totals));
        }
        for (const auto& [pair, totals] : by_number(pairs_)) {
            Json entry = {{"from", pair.first}, {"to", pair.second}};
            object["addresses"].push_back(with(entry, totals));
        }
        for (const Damage& damage : damages_) {
            object["damages"].push_back(
                {{"packet", damage.packet}, {"type", damage.type}, {"faults", damage.faults}});
        }
        return object;
    }

    void print(const CaptureReader& reader) const {
        fmt::print("{}\n", shown(reader.name()));
        fmt::print("  {} in {}, {}; {} damaged, {} of unknown types, {} cut\n",
                   counted(all_.messages, "message"), counted(batches_, "batch"), counted(all_.bytes, "byte"),
                   all_.damaged, unknown_, cut_);
        if (all_.messages != 0) {
            fmt::print("  from {}\n  to   {}, {:.3f} s; {:.0f} messages/s, {:.0f} bytes/s\n",
                       time_text(first_), time_text(last_), seconds(), rate(all_.messages), rate(all_.bytes));
        }
        fmt::print("  {} lost while recording", counted(reader.lost_batches(), "batch"));
        if (reader.foreign_packets() != 0)
            fmt::print("; {} without a message", counted(reader.foreign_packets(), "packet"));
        fmt::print("\n");
        if (all_.messages == 0) return;
        fmt::print("  {:<37} {:>10} {:>12} {:>12} {:>8}\n", "type", "messages", "bytes", "messages/s",
                   "damaged");
        for (const auto& [id, totals] : by_number(types_)) print_row(type_name(id), totals);
        fmt::print("  {:<37} {:>10} {:>12} {:>12} {:>8}\n", "from -> to", "messages", "bytes", "messages/s",
                   "damaged");
        for (const auto& [pair, totals] : by_number(pairs_))
            print_row(fmt::format("{} -> {}", pair.first, pair.second), totals);
        for (const Damage& damage : damages_) {
            fmt::print("  packet {}: {} is damaged{}\n", damage.packet, damage.type,
                       damage.faults.empty() ? "" : ": " + damage.faults.front());
        }
        if (all_.damaged > damages_.size())
            fmt::print("  and {} more that are damaged\n", all_.damaged - damages_.size());
    }

  private:
    // Those with the most messages first.
    template <class Key>
    static std::vector<std::pair<Key, Totals>> by_number(const std::map<Key, Totals>& totals) {
        std::vector<std::pair<Key, Totals>> rows(totals.begin(), totals.end());
        std::stable_sort(rows.begin(), rows.end(), [](const auto& left, const auto& right) {
            return left.second.messages > right.second.messages;
        });
        return rows;
    }

    Json with(Json entry, const Totals& totals) const {
        entry["messages"] = totals.messages;
        entry["bytes"] = totals.bytes;
        entry["damaged"] = totals.damaged;
        entry["messages_per_second"] = rate(totals.messages);
        return entry;
    }

    void print_row(const std::string& name, const Totals& totals) const {
        fmt::print("  {:<37} {:>10} {:>12} {:>12.1f} {:>8}\n", name, totals.messages, totals.bytes,
                   rate(totals.messages), totals.damaged);
    }

    // A message that was cut may be damaged or not, and counts as neither.
    bool check(const CapturedMessage& message, std::uint64_t packet) {
        const MessageType* const type = find_message_type(message.id);
        if (type == nullptr) {
            ++unknown_;
            return true;
        }
        if (message.is_cut() || is_valid(*type, message.bytes)) return true;
        if (damages_.size() < kDamagesShown) damages_.push_back({packet, type->name, faults(*type, message)});
        return false;
    }
    static std::vector<std::string> faults(const MessageType& type, const CapturedMessage& message) {
        const Unpacked unpacked(type, message.bytes);
        if (unpacked.verdict() != VORN_VERDICT_ARGUMENT) return unpacked.faults();
        return {size_refusal(type, message.bytes.size())};
    }

    Json time_or_null(std::uint64_t time) const {
        return all_.messages == 0 ? Json() : Json(time_text(time));
    }
    double seconds() const { return static_cast<double>(last_ - first_) / 1e9; }
    double rate(std::uint64_t number) const {
        return last_ == first_ ? 0 : static_cast<double>(number) / seconds();
    }

    Totals all_;
    std::map<std::uint32_t, Totals> types_;
    std::map<std::pair<std::uint32_t, std::uint32_t>, Totals> pairs_;
    std::vector<Damage> damages_;
    std::uint64_t first_ = 0;
    std::uint64_t last_ = 0;
    std::uint64_t batch_ = 0;
    std::uint64_t batches_ = 0;
    std::uint64_t unknown_ = 0;
    std::uint64_t cut_ = 0;
};

Json message_json(const CapturedMessage& message, std::uint64_t packet) {
    return {{"packet", packet},
            {"time", time_text(message.time)},
            {"from", message.source},
            {"to", message.destination},
            {"target", message.target},
            {"batch", message.batch},
            {"position", message.position},
            {"count", message.count},
            {"id", message.id},
            {"bytes", message.bytes_on_bus},
            {"hex", inspect::to_hex(message.bytes)}};
}

ExitCode run_info(const InfoOptions& options) {
    const MessageFilter filter(options.filter);
    Progress progress(options.files);
    ExitCode code = kOk;
    for (const std::string& file : options.files) {
        CaptureReader reader(file);
        Summary summary;
        CapturedMessage message;
        while (reader.next(message)) {
            progress.add(reader.block_bytes());
            if (!filter.takes_packet(reader.packets()) ||
                !filter.passes(message.id, message.source, message.destination, message.bytes))
                continue;
            if (options.messages) {
                fmt::print("{}\n", json_text(message_json(message, reader.packets())));
            } else {
                summary.add(message, reader.packets());
            }
        }
        if (options.json && !options.messages) {
            fmt::print("{}\n", json_text(summary.to_json(reader)));
        } else if (!options.json) {
            summary.print(reader);
        }
        if (!reader.complaint().empty()) report("nac: {}: {}", reader.name(), reader.complaint());
        if (!reader.complaint().empty() || summary.has_damage()) code = kBadData;
    }
    return code;
}

}  // namespace

void add_info(CLI::App& command, Chosen& chosen) {
    auto [verb, options] = add_verb(command, chosen, run_info);
    verb.add_option("FILE", options.files, "Captures, also as gzip; - is standard input")->required();
    add_filter_options(verb, options.filter);
    add_packet_option(verb, options.filter);
    CLI::Option* const json = verb.add_flag("--json", options.json, "One JSON object a capture");
    verb.add_flag("--messages", options.messages, "With --json, instead one object a message, with its bytes")
        ->needs(json);
    verb.footer("Exit code 1 if messages are damaged, or if a capture ends early.");
}

}  // namespace tool
