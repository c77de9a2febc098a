// SPDX-License-Identifier: Apache-2.0
#include "tool/show/traffic_view.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <iterator>

#include "tool/show/counted.h"
#include "tool/show/shown.h"

namespace tool {
namespace {

constexpr std::array kOrders = {"messages/s", "bytes/s", "messages", "damaged", "name"};
constexpr char kEscape = '\033';

// The first columns of a line: characters, each of which takes one.
std::string cut(const std::string& line, std::size_t columns) {
    std::size_t taken = 0;
    for (std::size_t at = 0; at < line.size(); ++at) {
        const bool begins = (static_cast<unsigned char>(line[at]) & 0xC0U) != 0x80;
        if (begins && taken++ == columns) return line.substr(0, at);
    }
    return line;
}

// Of as many columns as there are: a long name gives way to the numbers.
template <class Messages, class Damaged>
std::string row(TerminalSize size, const std::string& name, const Messages& messages, const std::string& rate,
                const std::string& bytes, const Damaged& damaged) {
    constexpr std::size_t kNumbers = 42;
    const std::size_t width = std::clamp<std::size_t>(size.columns, kNumbers + 10, kNumbers + 37) - kNumbers;
    return fmt::format("{:<{}.{}} {:>9} {:>10} {:>11} {:>8}", name, width, width, messages, rate, bytes,
                       damaged);
}

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

}  // namespace

std::string traffic_heading() {
    return fmt::format("{:<37} {:>10} {:>12} {:>12} {:>12} {:>8}", "type", "messages", "bytes", "messages/s",
                       "bytes/s", "damaged");
}

std::string traffic_row(const TypeTraffic& type) {
    return fmt::format("{:<37} {:>10} {:>12} {:>12.1f} {:>12.1f} {:>8}", type.name, type.messages, type.bytes,
                       type.messages_per_second, type.bytes_per_second, type.damaged);
}

void sort_by_rate(std::vector<TypeTraffic>& types) {
    std::stable_sort(types.begin(), types.end(), [](const TypeTraffic& left, const TypeTraffic& right) {
        return left.messages_per_second > right.messages_per_second;
    });
}

TrafficView::Wish TrafficView::take_key(char key) {
    if (typing_) {
        if (key == '\n' || key == '\r') {
            filter_ = typed_;
            typing_ = false;
        } else if (key == kEscape) {
            typing_ = false;
        } else if (key == '\b' || key == '\x7f') {
            if (!typed_.empty()) typed_.pop_back();
        } else if (std::isprint(static_cast<unsigned char>(key)) != 0) {
            typed_ += key;
        }
        return Wish::redraw;
    }
    switch (key) {
        case 'q':
            return Wish::quit;
        case 's':
            order_ = (order_ + 1) % static_cast<int>(kOrders.size());
            return Wish::redraw;
        case 'p':
            paused_ = !paused_;
            return Wish::redraw;
        case '/':
            typing_ = true;
            typed_.clear();
            return Wish::redraw;
        default:
            return Wish::none;
    }
}

bool TrafficView::fits(const std::string& text) const {
    return lower(text).find(lower(typing_ ? typed_ : filter_)) != std::string::npos;
}

std::vector<TypeTraffic> TrafficView::chosen(const Traffic& traffic) const {
    std::vector<TypeTraffic> types;
    std::copy_if(traffic.types.begin(), traffic.types.end(), std::back_inserter(types),
                 [this](const TypeTraffic& type) { return fits(type.name); });
    sort_by_rate(types);
    std::stable_sort(types.begin(), types.end(), [this](const TypeTraffic& left, const TypeTraffic& right) {
        switch (order_) {
            case kByBytes:
                return left.bytes_per_second > right.bytes_per_second;
            case kByMessages:
                return left.messages > right.messages;
            case kByDamage:
                return left.damaged > right.damaged;
            case kByName:
                return left.name < right.name;
            default:
                return false;
        }
    });
    return types;
}

std::string TrafficView::footer() const {
    if (typing_)
        return fmt::format("/{}_   Enter: show only these types and messages, Esc: as before", typed_);
    return fmt::format("q quit  s sort: {}  p {}  / filter{}", kOrders.at(static_cast<std::size_t>(order_)),
                       paused_ ? "go on (paused)" : "pause", filter_.empty() ? "" : ": " + filter_);
}

std::string TrafficView::screen(const Traffic& traffic, TerminalSize size, bool strong) const {
    constexpr std::size_t kFixedLines = 4;  // two of totals, the heading, the keys
    const TypeTraffic& all = traffic.all;
    std::vector<std::string> lines = {
        fmt::format("{:.0f} messages/s, {:.0f} bytes/s from {}; {} damaged, {} lost", all.messages_per_second,
                    all.bytes_per_second, counted(traffic.receivers, "receiver"), all.damaged,
                    counted(traffic.lost_batches, "batch")),
        fmt::format("{}, {} in {:.0f} s", counted(all.messages, "message"), counted(all.bytes, "byte"),
                    traffic.seconds),
        row(size, "type", "messages", "messages/s", "bytes/s", "damaged")};
    const std::size_t free_lines = size.lines > kFixedLines ? size.lines - kFixedLines : 0;
    const std::vector<TypeTraffic> types = chosen(traffic);
    std::size_t shown = types.size();
    if (shown > free_lines) shown = free_lines == 0 ? 0 : free_lines - 1;
    for (std::size_t k = 0; k < shown; ++k) {
        const TypeTraffic& type = types[k];
        lines.push_back(row(size, type.name, type.messages, fmt::format("{:.1f}", type.messages_per_second),
                            fmt::format("{:.0f}", type.bytes_per_second), type.damaged));
    }
    if (shown < types.size() && free_lines != 0)
        lines.push_back(fmt::format("and {} more types", types.size() - shown));

    std::vector<std::string> last;
    std::copy_if(traffic.last.begin(), traffic.last.end(), std::back_inserter(last),
                 [this](const std::string& line) { return fits(line); });
    const std::size_t left = size.lines > lines.size() + 1 ? size.lines - lines.size() - 1 : 0;
    if (left >= 2 && !last.empty()) {
        lines.emplace_back();
        lines.insert(lines.end(), last.begin(),
                     last.begin() + static_cast<std::ptrdiff_t>(std::min(left - 1, last.size())));
    }
    lines.resize(size.lines > 1 ? size.lines - 1 : 1);
    if (size.lines > 1) lines.push_back(footer());

    std::string text = "\033[H";
    for (std::size_t k = 0; k < lines.size(); ++k) {
        const std::string line = cut(escaped(lines[k]), size.columns);
        const bool is_strong = strong && (k == 0 || k + 1 == lines.size());
        text += (k == 0 ? "" : "\n") + (is_strong ? "\033[1m" + line + "\033[0m" : line) + "\033[K";
    }
    return text + "\033[J";
}

}  // namespace tool
