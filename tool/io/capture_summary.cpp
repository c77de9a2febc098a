// SPDX-License-Identifier: Apache-2.0
#include "tool/io/capture_summary.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "tool/show/counted.h"
#include "tool/show/shown.h"
#include "tool/show/time_text.h"

namespace tool {
namespace {

constexpr std::size_t kDamagesShown = 20;

}  // namespace

std::size_t CaptureSummary::sources() const {
    std::set<std::uint32_t> sources;
    for (const auto& [pair, totals] : pairs_) sources.insert(pair.first);
    return sources.size();
}

std::string CaptureSummary::counts() const {
    return fmt::format("{} in {}, {}; {} damaged, {} of unknown types, {} cut",
                       counted(all_.messages, "message"), counted(batches_, "batch"),
                       counted(all_.bytes, "byte"), all_.damaged, unknown_, cut_);
}

// Those with the most messages first.
template <class Key>
std::vector<std::pair<Key, CaptureSummary::Totals>> CaptureSummary::by_number(
    const std::map<Key, Totals>& totals) {
    std::vector<std::pair<Key, Totals>> rows(totals.begin(), totals.end());
    std::stable_sort(rows.begin(), rows.end(), [](const auto& left, const auto& right) {
        return left.second.messages > right.second.messages;
    });
    return rows;
}

void CaptureSummary::add(const CapturedMessage& message, std::uint64_t packet) {
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

Json CaptureSummary::to_json(const CaptureReader& reader) const {
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

void CaptureSummary::print(const CaptureReader& reader) const {
    fmt::print("{}\n", shown(reader.name()));
    fmt::print("  {}\n", counts());
    if (all_.messages != 0) {
        fmt::print("  from {}\n  to   {}, {:.3f} s; {:.0f} messages/s, {:.0f} bytes/s\n", time_text(first_),
                   time_text(last_), seconds(), rate(all_.messages), rate(all_.bytes));
    }
    fmt::print("  {} lost while recording", counted(reader.lost_batches(), "batch"));
    if (reader.foreign_packets() != 0)
        fmt::print("; {} without a message", counted(reader.foreign_packets(), "packet"));
    fmt::print("\n");
    if (all_.messages == 0) return;
    fmt::print("  {:<37} {:>10} {:>12} {:>12} {:>8}\n", "type", "messages", "bytes", "messages/s", "damaged");
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

Json CaptureSummary::with(Json entry, const Totals& totals) const {
    entry["messages"] = totals.messages;
    entry["bytes"] = totals.bytes;
    entry["damaged"] = totals.damaged;
    entry["messages_per_second"] = rate(totals.messages);
    return entry;
}

void CaptureSummary::print_row(const std::string& name, const Totals& totals) const {
    fmt::print("  {:<37} {:>10} {:>12} {:>12.1f} {:>8}\n", name, totals.messages, totals.bytes,
               rate(totals.messages), totals.damaged);
}

// A message that was cut may be damaged or not, and counts as neither.
bool CaptureSummary::check(const CapturedMessage& message, std::uint64_t packet) {
    const MessageType* const type = find_message_type(message.id);
    if (type == nullptr) {
        ++unknown_;
        return true;
    }
    if (message.is_cut() || is_valid(*type, message.bytes)) return true;
    if (damages_.size() < kDamagesShown) damages_.push_back({packet, type->name, faults(*type, message)});
    return false;
}
std::vector<std::string> CaptureSummary::faults(const MessageType& type, const CapturedMessage& message) {
    const Unpacked unpacked(type, message.bytes);
    if (unpacked.verdict() != VORN_VERDICT_ARGUMENT) return unpacked.faults();
    return {size_refusal(type, message.bytes.size())};
}

Json CaptureSummary::time_or_null(std::uint64_t time) const {
    return all_.messages == 0 ? Json() : Json(time_text(time));
}
double CaptureSummary::rate(std::uint64_t number) const {
    return last_ == first_ ? 0 : static_cast<double>(number) / seconds();
}

}  // namespace tool
