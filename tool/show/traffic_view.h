// SPDX-License-Identifier: Apache-2.0
// What passes over a bus, as a screen of a terminal that keys change.
#ifndef TOOL_TRAFFIC_VIEW_H
#define TOOL_TRAFFIC_VIEW_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tool/io/terminal.h"

namespace tool {

// Of one message type, or of all.
struct TypeTraffic {
    std::uint32_t id = 0;
    std::string name;
    std::uint64_t messages = 0;
    std::uint64_t bytes = 0;
    std::uint64_t damaged = 0;
    double messages_per_second = 0;  // since the last view
    double bytes_per_second = 0;
    bool is_fresh = false;  // something has come since the last view
};

struct Traffic {
    TypeTraffic all;
    std::vector<TypeTraffic> types;
    std::vector<std::string> last;  // some of the last messages, a line each
    std::uint64_t receivers = 0;
    std::uint64_t lost_batches = 0;
    double seconds = 0;  // since the beginning
};

std::string traffic_heading();
std::string traffic_row(const TypeTraffic& type);

// By rate, the highest first.
void sort_by_rate(std::vector<TypeTraffic>& types);

class TrafficView {
  public:
    enum class Wish { none, redraw, quit };
    // q, s, p, and / with what follows up to Enter; Escape ends it without.
    Wish take_key(char key);

    bool is_paused() const { return paused_; }

    // The whole screen, no line longer than it is wide: totals, as many types and messages as fit, and the
    // keys.
    std::string screen(const Traffic& traffic, TerminalSize size, bool strong) const;

  private:
    enum Order { kByRate, kByBytes, kByMessages, kByDamage, kByName };

    std::vector<TypeTraffic> chosen(const Traffic& traffic) const;
    bool fits(const std::string& text) const;
    std::string footer() const;

    int order_ = kByRate;
    bool paused_ = false;
    bool typing_ = false;
    std::string filter_;
    std::string typed_;
};

}  // namespace tool

#endif
