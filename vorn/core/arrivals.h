// SPDX-License-Identifier: Apache-2.0
// What has arrived and is not handled yet, as whoever polls sees it.
#ifndef VORN_ARRIVALS_H
#define VORN_ARRIVALS_H

#include <cstdint>

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

    Bytes bytes;                         // begins with the batch that is next
    std::uint32_t batches = 0;           // those in `bytes`
    bool repeated = false;               // the first of them may have been handled before
    std::uint32_t handled_messages = 0;  // of the batch that is next, where a poll lacked memory in it
};

// One thread at a time takes deliveries out.
class Arrivals {
  public:
    Arrivals() = default;
    virtual ~Arrivals() = default;
    Arrivals(const Arrivals&) = delete;
    Arrivals& operator=(const Arrivals&) = delete;

    // The delivery that is next, which stays; null when the time is over, or interrupted.
    virtual Delivery* front(Deadline deadline) = 0;
    virtual void pop_front() = 0;

    // Batches that are there. The thread that takes deliveries out reports what it has handled of them.
    virtual std::uint64_t batches() const = 0;
    virtual void batches_left(std::uint32_t batches) = 0;

    // Of the polling thread: those that a poll handles which begins now, at least.
    virtual std::uint64_t batches_for_poll() const { return batches(); }

    // While it is on, front does not wait.
    virtual void interrupt(bool on) = 0;

    // A front that waits, or the next one, returns.
    virtual void wake() = 0;

    // Refuses what comes, and destroys what is there.
    virtual void close() = 0;

    // Readable while there is a delivery. Negative: the system refused.
    virtual int descriptor() = 0;

    // The end of a poll.
    virtual void rest() {}
};

}  // namespace vorn

#endif
