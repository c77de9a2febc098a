// SPDX-License-Identifier: Apache-2.0
#include "vorn/core/inbox.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <utility>

namespace vorn {
namespace {

constexpr auto kLookAgain = std::chrono::milliseconds(20);

}  // namespace

Inbox::~Inbox() {
    close();
    if (descriptor_ >= 0) ::close(descriptor_);
}

bool Inbox::put(std::unique_ptr<Delivery>&& delivery) {
    bool was_empty = false;
    {
        const std::lock_guard locked(lock_);
        if (closed_) return false;
        was_empty = deliveries_.empty();
        const std::uint32_t batches = delivery->batches;
        deliveries_.push_back(std::move(delivery));
        count_alone(come_, batches);
        update_descriptor();
    }
    if (was_empty) changed_.notify_one();
    return true;
}

Delivery* Inbox::front(Deadline deadline) {
    std::unique_lock locked(lock_);
    const auto may_begin = [this] { return !deliveries_.empty() && deliveries_.front()->may_begin(); };
    const auto ready = [&] { return may_begin() || interrupted_ || woken_ || closed_; };
    while (!ready() && Clock::now() < deadline) {
        // Nobody says when the one in front may begin.
        changed_.wait_until(locked,
                            deliveries_.empty() ? deadline : std::min(deadline, Clock::now() + kLookAgain));
    }
    if (std::exchange(woken_, false) && !may_begin()) return nullptr;
    return interrupted_ || !may_begin() ? nullptr : deliveries_.front().get();
}

void Inbox::pop_front() {
    std::unique_ptr<Delivery> done;  // destroyed outside of the lock
    const std::lock_guard locked(lock_);
    if (deliveries_.empty()) return;
    done = std::move(deliveries_.front());
    deliveries_.pop_front();
    update_descriptor();
}

void Inbox::interrupt(bool on) {
    {
        const std::lock_guard locked(lock_);
        interrupted_ = on;
    }
    changed_.notify_all();
}

void Inbox::wake() {
    {
        const std::lock_guard locked(lock_);
        woken_ = true;
    }
    changed_.notify_all();
}

void Inbox::close() {
    {
        const std::lock_guard locked(lock_);
        closed_ = true;
    }
    changed_.notify_all();
    // One by one, outside of the lock, and without memory for another list.
    for (bool more = true; more;) {
        std::unique_ptr<Delivery> left;
        const std::lock_guard locked(lock_);
        more = !deliveries_.empty();
        if (more) {
            left = std::move(deliveries_.front());
            deliveries_.pop_front();
        }
        gone_.store(come_.load(std::memory_order_relaxed), std::memory_order_relaxed);
        update_descriptor();
    }
}

int Inbox::descriptor() {
    const std::lock_guard locked(lock_);
    if (descriptor_ < 0) {
        descriptor_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        update_descriptor();
    }
    return descriptor_;
}

void Inbox::update_descriptor() {
    if (descriptor_ < 0 || readable_ == !deliveries_.empty()) return;
    readable_ = !readable_;
    eventfd_t value = 1;
    static_cast<void>(readable_ ? eventfd_write(descriptor_, value) : eventfd_read(descriptor_, &value));
}

}  // namespace vorn
