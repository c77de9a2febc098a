// SPDX-License-Identifier: Apache-2.0
#include "tool/message/walk.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "inspect/byte_text.h"
#include "tool/io/carried_exception.h"

namespace tool {
namespace {

constexpr std::size_t kMostShown = 24;       // elements of a value in one line
constexpr std::size_t kMostCharacters = 64;  // of a text there

struct Listener {
    Walk found;
    const std::function<void(const vorn_range&)>& see;
    CarriedException exception;
};

void on_range(const vorn_range* range, void* context) {
    auto& listener = *static_cast<Listener*>(context);
    listener.exception.call([&] { listener.see(*range); });
}

std::int32_t on_fault(const vorn_fault* fault, void* context) {
    auto& listener = *static_cast<Listener*>(context);
    if (listener.found.faults.size() == kMostFaults) {
        ++listener.found.more_faults;
    } else {
        listener.exception.call([&] { listener.found.faults.push_back({*fault, fault->path, fault->what}); });
    }
    return 0;
}

Range unread() {
    Range range = {};
    range.part = VORN_PART_UNREAD;
    range.index = VORN_NO_OFFSET;
    return range;
}

}  // namespace

Walk walk(const MessageType& type, std::span<const std::uint8_t> message,
          const std::function<void(const vorn_range&)>& see) {
    Listener listener = {{}, see, {}};
    listener.found.verdict =
        vorn_inspect_walk(&type, message.data(), message.size(), see ? on_range : nullptr, on_fault,
                          &listener, &listener.found.layout);
    listener.exception.rethrow();
    return std::move(listener.found);
}

Annotated annotate(const MessageType& type, std::span<const std::uint8_t> message) {
    Annotated made;
    std::vector<Range> paddings;
    const auto see = [&](const vorn_range& range) {
        auto& list = range.part == VORN_PART_PADDING ? paddings : made.ranges;
        if (made.ranges.size() + paddings.size() < kMostRanges) {
            list.push_back({range, range.path});
        } else {
            made.cut = true;
        }
    };
    made.walk = walk(type, message, see);
    const auto by_position = [](const Range& a, const Range& b) { return a.at < b.at; };
    std::stable_sort(made.ranges.begin(), made.ranges.end(), by_position);
    std::stable_sort(paddings.begin(), paddings.end(), by_position);

    // What no range covers is padding where an image has some, and unread elsewhere.
    std::vector<Range> rest;
    const auto fill = [&rest](std::uint32_t from, std::uint32_t to, const Range* padding) {
        if (from >= to) return;
        Range range = padding != nullptr ? *padding : unread();
        range.at = from;
        range.bytes = to - from;
        rest.push_back(std::move(range));
    };
    auto padding = paddings.begin();
    const auto fill_gap = [&](std::uint32_t first, std::uint32_t last) {
        while (first < last) {
            while (padding != paddings.end() && padding->at + padding->bytes <= first) ++padding;
            if (padding == paddings.end() || padding->at >= last) return fill(first, last, nullptr);
            fill(first, padding->at, nullptr);
            const std::uint32_t padded = std::max(first, padding->at);
            first = std::min(last, padding->at + padding->bytes);
            fill(padded, first, &*padding);
        }
    };
    std::uint32_t end = 0;
    for (const Range& range : made.ranges) {
        if (range.at > end) fill_gap(end, range.at);
        end = std::max(end, range.at + range.bytes);
    }
    fill_gap(end, static_cast<std::uint32_t>(message.size()));
    made.ranges.insert(made.ranges.end(), std::make_move_iterator(rest.begin()),
                       std::make_move_iterator(rest.end()));
    std::stable_sort(made.ranges.begin(), made.ranges.end(), by_position);

    for (const Fault& fault : made.walk.faults) {
        auto range = std::partition_point(made.ranges.begin(), made.ranges.end(),
                                          [&fault](const Range& each) { return each.at < fault.at; });
        for (; range != made.ranges.end() && range->at == fault.at; ++range) {
            if (range->bytes == fault.bytes) range->faulty = true;
        }
    }
    // A piece is one range and those that start in it; what another range leaves over is a piece of its own.
    for (std::size_t k = 0; k < made.ranges.size(); ++k) {
        const Range& range = made.ranges[k];
        const std::uint32_t done = made.pieces.empty() ? 0 : made.pieces.back().at + made.pieces.back().bytes;
        const std::uint32_t range_end = range.at + range.bytes;
        if (range.at >= done) {
            made.pieces.push_back({range.at, range.bytes, {k}});
            continue;
        }
        made.pieces.back().meanings.push_back(k);
        if (range_end > done) made.pieces.push_back({done, range_end - done, {k}});
    }
    return made;
}

std::string meaning(const Range& range, std::span<const std::uint8_t> message, Octets octets, bool whole) {
    if (range.part == VORN_PART_ELEMENTS && is_octets(*range.field)) {
        const std::size_t most = whole ? SIZE_MAX : kMostCharacters;
        if (const auto text = octets_text(message.subspan(range.at, range.bytes), octets))
            return fmt::format("{} {} = \"{}\"", range.path, range.field->type_name,
                               inspect::shortened(*text, most));
    }
    vorn_range plain = range;
    plain.path = range.path.c_str();
    std::string text(120, '\0');
    while (true) {
        const std::size_t length = vorn_inspect_range_text(
            &plain, message.data(), whole ? SIZE_MAX : kMostShown, text.data(), text.size() + 1);
        const bool is_all = length <= text.size();
        text.resize(length);
        if (is_all) return text;
    }
}

}  // namespace tool
