// SPDX-License-Identifier: Apache-2.0
// How long a receiver may handle batches without a word from its server. Pure but for being read by two
// threads: times are handed in.
//
// The server names one receiver of an address. A receiver that is cut off does not hear when another is
// named; so it stops when its last word is older than kTime, and another that was named waits for as long.
#ifndef VORN_NATS_LEASE_H
#define VORN_NATS_LEASE_H

#include <atomic>
#include <chrono>

#include "vorn/core/support.h"

namespace vorn {

class NatsLease {
  public:
    static constexpr auto kTime = std::chrono::seconds(4);
    static constexpr auto kRenewal = std::chrono::seconds(1);

    // Another receiver was named until now, and may not know yet.
    void wait_for_another(Deadline now) { begins_ = now + kTime; }

    // The server named this receiver in answer to a question of that time.
    void renew(Deadline asked) { ends_ = asked + kTime; }

    // The server names another: for good.
    void lose() { is_lost_ = true; }
    bool is_lost() const { return is_lost_; }

    bool holds(Deadline now) const { return !is_lost_ && now >= begins_.load() && now < ends_.load(); }

  private:
    std::atomic<Deadline> begins_ = Deadline::min();
    std::atomic<Deadline> ends_ = Deadline::min();
    std::atomic<bool> is_lost_ = false;
};

}  // namespace vorn

#endif
