// SPDX-License-Identifier: Apache-2.0
// What has arrived and is not handled yet, between a transport and whoever polls.
#ifndef VORN_INBOX_H
#define VORN_INBOX_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>

#include "vorn/core/envelope.h"
#include "vorn/core/support.h"

namespace vorn {

// Batches that arrived together, one after the other. Destroyed unfinished, they are lost to their sender.
class Delivery {
  public:
    Delivery() = default;
    virtual ~Delivery() = default;
    Delivery(const Delivery&) = delete;
    Delivery& operator=(const Delivery&) = delete;

    // Whether the next batch may be handled now; if not, polls wait.
    virtual bool may_begin() const { return true; }

    // Called in the polling thread: around each batch; where polling ends before the last; and after the
    // last, or where the rest cannot be read.
    virtual void batch_begins() {}
    virtual void batch_handled() {}
    virtual void left_for_later() {}
    virtual void finished() = 0;

    Bytes bytes;                // begins with the batch that is next
    std::uint32_t batches = 0;  // those in `bytes`
    bool repeated = false;      // the first of them may have been handled before
};

// Any number of threads put deliveries in; one at a time takes them out. How much is in it is the transports'
// concern: each limits the batches that senders have on their way.
class Inbox {
  public:
    Inbox() = default;
    ~Inbox();
    Inbox(const Inbox&) = delete;
    Inbox& operator=(const Inbox&) = delete;

    // False: closed, and nobody will handle the delivery. Where it throws, the delivery stays the caller's.
    bool put(std::unique_ptr<Delivery>&& delivery);

    // The delivery that is next, which stays; null when the time is over, or interrupted.
    Delivery* front(Deadline deadline);
    void pop_front();

    // Batches that are there. The thread that takes deliveries out reports what it has handled of them.
    void batches_left(std::uint32_t batches) { count_alone(gone_, batches); }
    std::uint64_t batches() const {
        const std::uint64_t gone = gone_.load(std::memory_order_relaxed);  // first: it never overtakes
        return come_.load(std::memory_order_relaxed) - gone;
    }

    // While it is on, front does not wait.
    void interrupt(bool on);

    // Refuses what comes, and destroys what is there.
    void close();

    // Readable while there is a delivery. Negative: the system refused.
    int descriptor();

  private:
    void update_descriptor();

    std::mutex lock_;
    std::condition_variable changed_;
    std::deque<std::unique_ptr<Delivery>> deliveries_;
    std::atomic<std::uint64_t> come_ = 0;
    std::atomic<std::uint64_t> gone_ = 0;
    bool interrupted_ = false;
    bool closed_ = false;
    int descriptor_ = -1;
    bool readable_ = false;
};

}  // namespace vorn

#endif
