// SPDX-License-Identifier: Apache-2.0
// Which packets a watcher has seen: senders publish them again until they are stored. Pure.
#ifndef VORN_NATS_SEEN_H
#define VORN_NATS_SEEN_H

#include <cstdint>
#include <deque>
#include <set>
#include <utility>

#include "vorn/nats/nats_packet.h"

namespace vorn {

class NatsSeen {
  public:
    static constexpr std::size_t kMost = 65536;  // then the first is forgotten

    // False: it was seen before.
    bool add(const NatsPacket& packet) {
        const auto [found, is_new] = seen_.emplace(packet.session, packet.first);
        if (!is_new) return false;
        in_order_.push_back(*found);
        if (in_order_.size() > kMost) {
            seen_.erase(in_order_.front());
            in_order_.pop_front();
        }
        return true;
    }
    std::size_t size() const { return seen_.size(); }

  private:
    std::set<std::pair<std::uint64_t, std::uint64_t>> seen_;
    std::deque<std::pair<std::uint64_t, std::uint64_t>> in_order_;
};

}  // namespace vorn

#endif
