// SPDX-License-Identifier: Apache-2.0
// The rings from which one thread at a time reads. It looks only at those that have had something lately; the
// writer of another rings when there is something.
#ifndef VORN_RING_SET_H
#define VORN_RING_SET_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "vorn/core/support.h"
#include "vorn/ipc/descriptor.h"
#include "vorn/ipc/ring.h"
#include "vorn/ipc/shared_memory.h"

namespace vorn {

class RingSet {
  public:
    // A ring to read.
    struct Source {
        SharedMemory memory;
        RingReader reader;
        Descriptor doorbell;
        std::uint32_t address = 0;
        bool first_is_repeated = false;
        std::atomic<bool> has_ended = false;   // the writer is gone: what is there is all
        std::atomic<bool> is_removed = false;  // nothing of it is to be read any more
        bool is_active = false;                // of the reading thread, like what follows
        Source* next_active = nullptr;
    };

    // Throws system_error. `readable` is a descriptor that is readable at any time.
    RingSet(const Descriptor& readable, std::uint32_t spin_us);

    // Any thread. False: the doorbell is none.
    bool add(const std::shared_ptr<Source>& source);
    void end(Source& source);
    void remove(Source& source);
    void wake();
    void interrupt(bool on);  // while it is on, next() does not wait
    std::uint64_t bytes() const { return bytes_.load(std::memory_order_relaxed); }

    // Calls use(source) for each, under a lock.
    template <class Use>
    void each(Use&& use) const {
        const std::lock_guard locked(lock_);
        for (const auto& source : sources_) use(*source);
    }

    // One thread at a time; it allocates nothing. The ring that is next and has a record; null: the time is
    // over, or interrupted. It is valid until the next call.
    Source* next(Deadline deadline);

    // Records of the rings that have had something, so that many that have nothing cost nothing.
    std::uint64_t records_of_active() const;

    // Readable while there is something to read. A reader calls rest() when it may not come back by itself,
    // and says whether it has something left that it has read.
    int descriptor();
    void rest(bool has_some_left);

  private:
    Source* find_active();
    bool all_sleep();
    void look(int milliseconds);
    void activate(Source& source);
    Source& pop_active();
    void forget(const Source& source);
    void activate_the_ended();

    Descriptor epoll_;
    const int readable_;
    const std::uint32_t spin_us_;
    std::atomic<bool> is_interrupted_ = false;
    std::atomic<bool> is_woken_ = false;
    std::atomic<bool> some_have_ended_ = false;
    std::atomic<std::uint64_t> bytes_ = 0;

    mutable std::mutex lock_;
    std::vector<std::shared_ptr<Source>> sources_;
    Descriptor more_;  // readable too, and in the set while there is more than a poll has read
    std::atomic<bool> has_descriptor_ = false;

    // Of the reading thread: a queue of the rings that have had something.
    Source* first_ = nullptr;
    Source* last_ = nullptr;
    std::atomic<std::size_t> active_ = 0;
    bool says_more_ = false;
};

}  // namespace vorn

#endif
