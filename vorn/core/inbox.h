// SPDX-License-Identifier: Apache-2.0
// A queue of what has arrived, between a transport's threads and whoever polls.
#ifndef VORN_INBOX_H
#define VORN_INBOX_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>

#include "vorn/core/arrivals.h"

namespace vorn {

// Any number of threads put deliveries in; one at a time takes them out. How much is in it is the transports'
// concern: each limits the batches that senders have on their way.
class Inbox final : public Arrivals {
  public:
    ~Inbox() override;

    // False: closed, and nobody will handle the delivery. Where it throws, the delivery stays the caller's.
    bool put(std::unique_ptr<Delivery>&& delivery);

    Delivery* front(Deadline deadline) override;
    void pop_front() override;
    void batches_left(std::uint32_t batches) override { count_alone(gone_, batches); }
    std::uint64_t batches() const override {
        const std::uint64_t gone = gone_.load(std::memory_order_relaxed);  // first: it never overtakes
        return come_.load(std::memory_order_relaxed) - gone;
    }
    void interrupt(bool on) override;
    void wake() override;
    void close() override;
    int descriptor() override;

  private:
    void update_descriptor();

    std::mutex lock_;
    std::condition_variable changed_;
    std::deque<std::unique_ptr<Delivery>> deliveries_;
    std::atomic<std::uint64_t> come_ = 0;
    std::atomic<std::uint64_t> gone_ = 0;
    bool interrupted_ = false;
    bool woken_ = false;
    bool closed_ = false;
    int descriptor_ = -1;
    bool readable_ = false;
};

}  // namespace vorn

#endif
