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

// Units that arrived together, one behind the other. Destroyed unfinished, they are lost to their sender.
class Parcel {
  public:
    Parcel() = default;
    virtual ~Parcel() = default;
    Parcel(const Parcel&) = delete;
    Parcel& operator=(const Parcel&) = delete;

    // Called in the polling thread: around each unit; where polling ends before the last; and after the last,
    // or where the rest cannot be read.
    virtual void unit_begins() {}
    virtual void unit_handled() {}
    virtual void left_for_later() {}
    virtual void finished() = 0;

    Bytes bytes;              // begins with the unit that is next
    std::uint32_t units = 0;  // those in `bytes`
    bool repeated = false;    // the first of them may have been handled before
};

// Any number of threads put parcels in; one at a time takes them out. Room is the transports' concern: each
// lets senders have so many units on their way.
class Inbox {
  public:
    Inbox() = default;
    ~Inbox();
    Inbox(const Inbox&) = delete;
    Inbox& operator=(const Inbox&) = delete;

    // False: closed, and nobody will handle the parcel.
    bool put(std::unique_ptr<Parcel> parcel);

    // The parcel that is next, which stays; null when the time is over, or interrupted.
    Parcel* front(Deadline deadline);
    void pop_front();

    // Units that are there. The thread that takes parcels out says what it has handled of them.
    void units_left(std::uint32_t units) { count_alone(gone_, units); }
    std::uint64_t units() const {
        const std::uint64_t gone = gone_.load(std::memory_order_relaxed);  // first: it never overtakes
        return come_.load(std::memory_order_relaxed) - gone;
    }

    // While it is on, front does not wait.
    void interrupt(bool on);

    // Refuses what comes, and destroys what is there.
    void close();

    // Readable while there is a parcel. Negative: the system refused.
    int descriptor();

  private:
    void tell_descriptor();

    std::mutex lock_;
    std::condition_variable changed_;
    std::deque<std::unique_ptr<Parcel>> parcels_;
    std::atomic<std::uint64_t> come_ = 0;
    std::atomic<std::uint64_t> gone_ = 0;
    bool interrupted_ = false;
    bool closed_ = false;
    int descriptor_ = -1;
    bool readable_ = false;
};

}  // namespace vorn

#endif
