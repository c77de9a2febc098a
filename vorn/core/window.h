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
    Window(std::uint32_t batches, std::uint32_t bytes, Counters& counters)
        : most_batches_(batches), most_bytes_(bytes), counters_(&counters) {}

    // Waits until the batch fits. False: it did not in time.
    bool take(std::uint32_t bytes, std::uint32_t peer_batches, SendTimeout& timeout) {
        std::unique_lock locked(lock_);
        const auto fits = [this, bytes, most_batches = std::min(most_batches_, peer_batches)] {
            return batches_ == 0 || (batches_ < most_batches && bytes_ + bytes <= most_bytes_);
        };
        if (!fits() && !changed_.wait_until(locked, timeout.end(), fits)) return false;
        ++batches_;
        bytes_ += bytes;
        return true;
    }

    void give_back(std::uint32_t bytes, bool lost) {
        {
            const std::lock_guard locked(lock_);
            --batches_;
            bytes_ -= bytes;
            if (lost && counters_ != nullptr) count(counters_->lost_batches);
        }
        changed_.notify_all();
    }

    bool wait_until_empty(Deadline deadline) {
        std::unique_lock locked(lock_);
        return changed_.wait_until(locked, deadline, [this] { return batches_ == 0; });
    }

    std::uint32_t batches() {
        const std::lock_guard locked(lock_);
        return batches_;
    }

    // The sender has gone, and its counters with it.
    void forget_counters() {
        const std::lock_guard locked(lock_);
        counters_ = nullptr;
    }

  private:
    std::mutex lock_;
    std::condition_variable changed_;
    std::uint32_t most_batches_;
    std::uint64_t most_bytes_;
    std::uint32_t batches_ = 0;
    std::uint64_t bytes_ = 0;
    Counters* counters_;
};

}  // namespace vorn

#endif
