// SPDX-License-Identifier: Apache-2.0
// How much one sender has on its way to one receiver.
#ifndef VORN_WINDOW_H
#define VORN_WINDOW_H

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "vorn/core/support.h"

namespace vorn {

// Shared by sender and receiver; outlives both.
class Window {
  public:
    Window(std::uint32_t units, std::uint32_t bytes, Counters& counters)
        : most_units_(units), most_bytes_(bytes), counters_(&counters) {}

    // Waits for room. False: there was none in time.
    bool take(std::uint32_t bytes, std::uint32_t peer_units, Patience& patience) {
        std::unique_lock locked(lock_);
        const auto fits = [this, bytes, most_units = std::min(most_units_, peer_units)] {
            return units_ == 0 || (units_ < most_units && bytes_ + bytes <= most_bytes_);
        };
        if (!fits() && !changed_.wait_until(locked, patience.end(), fits)) return false;
        ++units_;
        bytes_ += bytes;
        return true;
    }

    void give_back(std::uint32_t bytes, bool lost) {
        {
            const std::lock_guard locked(lock_);
            --units_;
            bytes_ -= bytes;
            if (lost && counters_ != nullptr) count(counters_->lost_units);
        }
        changed_.notify_all();
    }

    bool wait_until_empty(Deadline deadline) {
        std::unique_lock locked(lock_);
        return changed_.wait_until(locked, deadline, [this] { return units_ == 0; });
    }

    std::uint32_t units() {
        const std::lock_guard locked(lock_);
        return units_;
    }

    // The sender has gone, and its counters with it.
    void forget_counters() {
        const std::lock_guard locked(lock_);
        counters_ = nullptr;
    }

  private:
    std::mutex lock_;
    std::condition_variable changed_;
    std::uint32_t most_units_;
    std::uint64_t most_bytes_;
    std::uint32_t units_ = 0;
    std::uint64_t bytes_ = 0;
    Counters* counters_;
};

}  // namespace vorn

#endif
