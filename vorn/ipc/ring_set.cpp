// SPDX-License-Identifier: Apache-2.0
#include "vorn/ipc/ring_set.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

namespace vorn {
namespace {

bool set(const Descriptor& epoll, int operation, int descriptor, std::uint32_t events, void* data) {
    epoll_event event = {};
    event.events = events;
    event.data.ptr = data;
    return epoll_ctl(epoll.get(), operation, descriptor, &event) == 0;
}

// How often a poll that spins looks whether a ring that slept has been rung for.
constexpr int kSpinsBetweenLooks = 256;

}  // namespace

RingSet::RingSet(const Descriptor& readable, std::uint32_t spin_us)
    : epoll_(epoll_create1(EPOLL_CLOEXEC)), readable_(readable.get()), spin_us_(spin_us) {
    if (!epoll_ || !set(epoll_, EPOLL_CTL_ADD, readable_, 0, nullptr)) {
        throw std::system_error(errno, std::generic_category());
    }
}

bool RingSet::add(const std::shared_ptr<Source>& source) {
    const std::lock_guard locked(lock_);
    sources_.push_back(source);
    if (!set(epoll_, EPOLL_CTL_ADD, source->doorbell.get(), EPOLLIN | EPOLLET, source.get())) {
        sources_.pop_back();
        return false;
    }
    bytes_ += source->memory.bytes();
    return true;
}

void RingSet::end(Source& source) {
    source.has_ended = true;
    some_have_ended_ = true;
    set(epoll_, EPOLL_CTL_MOD, readable_, EPOLLIN | EPOLLONESHOT, nullptr);
}

void RingSet::remove(Source& source) {
    source.is_removed = true;
    end(source);
}

void RingSet::wake() {
    is_woken_ = true;
    set(epoll_, EPOLL_CTL_MOD, readable_, EPOLLIN | EPOLLONESHOT, nullptr);
}

void RingSet::interrupt(bool on) {
    is_interrupted_ = on;
    if (on) set(epoll_, EPOLL_CTL_MOD, readable_, EPOLLIN | EPOLLONESHOT, nullptr);
}

void RingSet::activate(Source& source) {
    if (std::exchange(source.is_active, true)) return;
    (first_ == nullptr ? first_ : last_->next_active) = &source;
    last_ = &source;
    ++active_;
}

RingSet::Source& RingSet::pop_active() {
    Source& source = *first_;
    first_ = std::exchange(source.next_active, nullptr);
    source.is_active = false;
    --active_;
    return source;
}

// Its doorbell is open in the writer's process too, so closing it here would not take it out of the set.
void RingSet::forget(const Source& source) {
    const std::lock_guard locked(lock_);
    set(epoll_, EPOLL_CTL_DEL, source.doorbell.get(), 0, nullptr);
    bytes_ -= source.memory.bytes();
    std::erase_if(sources_, [&source](const auto& other) { return other.get() == &source; });
}

void RingSet::activate_the_ended() {
    if (!some_have_ended_.exchange(false)) return;
    const std::lock_guard locked(lock_);
    for (const auto& source : sources_) {
        if (source->has_ended) activate(*source);
    }
}

// Each ring has its turn.
RingSet::Source* RingSet::find_active() {
    activate_the_ended();
    for (std::size_t left = active_; left != 0; --left) {
        Source& source = pop_active();
        const bool has_ended = source.has_ended;  // before looking for the last time
        if (!source.is_removed && source.reader.has_some()) {
            activate(source);
            return &source;
        }
        if (has_ended) {
            forget(source);
        } else {
            activate(source);
        }
    }
    return nullptr;
}

// False: one has a record after all.
bool RingSet::all_sleep() {
    bool all = true;
    for (std::size_t left = active_; left != 0; --left) {
        Source& source = pop_active();
        if (source.reader.sleep()) continue;
        activate(source);
        all = false;
    }
    return all && !some_have_ended_;
}

void RingSet::look(int milliseconds) {
    std::array<epoll_event, 64> events;
    const int count = epoll_wait(epoll_.get(), events.data(), static_cast<int>(events.size()), milliseconds);
    for (int i = 0; i < count; ++i) {
        void* const source = events[static_cast<std::size_t>(i)].data.ptr;
        if (source != nullptr) activate(*static_cast<Source*>(source));
    }
}

RingSet::Source* RingSet::next(Deadline deadline) {
    if (std::exchange(says_more_, false)) set(epoll_, EPOLL_CTL_MOD, more_.get(), 0, nullptr);
    std::optional<Deadline> spins_until;
    bool has_looked = false;
    for (int spins = 1;; ++spins) {
        if (Source* const source = find_active(); source != nullptr) return source;
        if (is_interrupted_ || is_woken_.exchange(false)) return nullptr;
        if (has_looked && Clock::now() >= deadline) return nullptr;
        if (spin_us_ != 0) {
            const Deadline now = Clock::now();
            if (!spins_until) spins_until = std::min(deadline, now + std::chrono::microseconds(spin_us_));
            if (now < *spins_until) {
                if (spins % kSpinsBetweenLooks == 0) look(0);
                continue;
            }
        }
        if (!all_sleep()) continue;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        look(static_cast<int>(std::clamp<std::int64_t>(left, 0, 3'600'000)));
        has_looked = true;
    }
}

std::uint64_t RingSet::records_of_active() const {
    std::uint64_t records = 0;
    for (const Source* source = first_; source != nullptr; source = source->next_active) {
        records += std::min<std::uint64_t>(source->reader.published() - source->reader.taken(),
                                           source->reader.most());
    }
    return records;
}

int RingSet::descriptor() {
    const std::lock_guard locked(lock_);
    if (!more_) {
        more_ = Descriptor(fcntl(readable_, F_DUPFD_CLOEXEC, 0));
        // A ring that the reader has looked at is not rung for: until the next poll there may be something.
        const std::uint32_t events = active_ != 0 ? std::uint32_t{EPOLLIN} : 0U;
        if (!more_ || !set(epoll_, EPOLL_CTL_ADD, more_.get(), events, nullptr)) return -1;
        has_descriptor_ = true;
    }
    return epoll_.get();
}

void RingSet::rest(bool has_some_left) {
    if (!has_descriptor_) return;
    look(0);
    says_more_ = !all_sleep() || has_some_left;
    set(epoll_, EPOLL_CTL_MOD, more_.get(), says_more_ ? std::uint32_t{EPOLLIN} : 0U, nullptr);
}

}  // namespace vorn
