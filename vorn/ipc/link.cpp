// SPDX-License-Identifier: Apache-2.0
#include "vorn/ipc/link.h"

#include <algorithm>
#include <array>
#include <exception>
#include <utility>

#include "vorn/ipc/futex.h"

namespace vorn {
namespace {

using namespace std::chrono_literals;

// A sender is woken when half of what waits is handled, or looks by itself.
constexpr auto kLooksForSpace = 2ms;
// A receiver that ends a connection is asked again after this; one that is not there, when its socket
// appears, or after the longer time where the system does not tell.
constexpr auto kAsksAgain = 10ms;
constexpr auto kLooksForReceiver = 500ms;

}  // namespace

Link::Link(const Endpoint& own, std::uint32_t destination, const Folder& folder, Service& service)
    : own_(own), destination_(destination), folder_(folder), service_(service), connect_([this] {
          connect();
      }) {}

Result Link::send(const Outgoing& batch, SendTimeout& timeout) {
    const std::uint32_t bytes = batch.header.bytes;
    std::unique_lock locked(lock_);
    for (;;) {
        if (!is_up_ && !wait_for_peer(locked, timeout)) return VORN_BUS_NO_PEER;
        if (bytes > peer_batch_bytes_) return VORN_BUS_TOO_LARGE;
        std::uint8_t* to = outbox_.reserve(bytes);
        if (to == nullptr && note_handled()) to = outbox_.reserve(bytes);
        if (to != nullptr) {
            write_batch(to, batch.header, batch.descriptors);
            if (!outbox_.publish()) return VORN_BUS_OK;
            const std::shared_ptr<Ring> rung = ring_;
            locked.unlock();
            ring(rung->doorbell);
            return VORN_BUS_OK;
        }
        if (!is_up_) continue;
        if (Clock::now() >= timeout.end()) return VORN_BUS_FULL;
        const std::uint64_t half = outbox_.published() - outbox_.waiting() / 2;
        wait_for_space(locked, half, std::min(timeout.end(), Clock::now() + kLooksForSpace));
    }
}

bool Link::wait_for_peer(std::unique_lock<std::mutex>& locked, SendTimeout& timeout) {
    ++senders_waiting_;
    service_.post(connect_);
    const bool came = changed_.wait_until(locked, timeout.end(), [this] { return is_up_; });
    --senders_waiting_;
    return came;
}

void Link::wait_for_space(std::unique_lock<std::mutex>& locked, std::uint64_t number, Deadline deadline) {
    const std::shared_ptr<Ring> waited = ring_;  // it stays mapped, whatever becomes of the link
    const std::uint32_t wakes = outbox_.writer().wants_to_be_woken_at(number);
    if (!note_handled() || outbox_.handled() >= number) return;
    locked.unlock();
    wait_while(waited->memory.ring().header->wakes, wakes, deadline);
    locked.lock();
}

// False: the receiver claims what cannot be, and is left.
bool Link::note_handled() {
    if (outbox_.note_handled()) return true;
    count(own_.counters.damaged);
    own_.log.warning("the receiver at address ", destination_,
                     " claims to have handled what was not sent, and is left");
    is_up_ = false;
    service_.post(connect_);
    return false;
}

bool Link::wait_until_empty(Deadline deadline) {
    std::unique_lock locked(lock_);
    for (;;) {
        if (is_up_ && !note_handled()) continue;
        if (outbox_.waiting() == 0) return true;
        if (Clock::now() >= deadline) return false;
        if (is_up_) {
            wait_for_space(locked, outbox_.published(), deadline);
        } else {
            changed_.wait_until(locked, deadline, [this] { return is_up_; });
        }
    }
}

std::uint32_t Link::batches() {
    const std::lock_guard locked(lock_);
    if (is_up_) note_handled();
    return outbox_.waiting();
}

std::uint32_t Link::batches_without_receiver() {
    const std::lock_guard locked(lock_);
    return is_up_ ? 0 : outbox_.waiting();
}

void Link::connect() {
    if (is_closed_) return;
    service_.forget(connect_);
    {
        const std::lock_guard locked(lock_);
        if (is_up_ || (senders_waiting_ == 0 && outbox_.waiting() == 0)) return;
    }
    if (awaits_welcome_) return;
    if (socket_) end(kAsksAgain);  // the receiver was left
    switch (folder_.connect(destination_, socket_)) {
        case Folder::Connected::yes:
            awaits_welcome_ = service_.watch(socket_, *this);
            return awaits_welcome_ ? void() : end(kLooksForReceiver);
        case Folder::Connected::nobody:
            return service_.at(Clock::now() + kLooksForReceiver, connect_);
        case Folder::Connected::later:
            return service_.at(Clock::now() + kAsksAgain, connect_);
        case Folder::Connected::failed:
            own_.log.warning(folder_.socket_path(destination_), ": ", system_error_text());
            return service_.at(Clock::now() + kLooksForReceiver, connect_);
    }
}

void Link::ready() {
    Packet packet;
    switch (receive_packet(socket_, packet)) {
        case Received::nothing:
            return;
        case Received::packet:
            return welcome(packet);
        case Received::end:
        case Received::broken:
            return end(kAsksAgain);
    }
}

void Link::welcome(const Packet& packet) {
    const auto welcome = read_welcome(packet.bytes());
    if (!welcome || welcome->address != destination_ || !std::exchange(awaits_welcome_, false)) {
        count(own_.counters.damaged);
        own_.log.warning("what listens at address ", destination_, " is no receiver, and is left");
        return end(kLooksForReceiver);
    }
    auto ring = std::make_shared<Ring>();
    Descriptor memory;
    ring->doorbell = make_doorbell();
    const std::size_t bytes = ring_bytes_for(own_.queue_bytes, own_.batch_bytes);
    if (!ring->doorbell || !ring->memory.make(bytes, memory)) {
        own_.log.warning("no ring for address ", destination_, ": ", system_error_text());
        return end(kLooksForReceiver);
    }
    Outbox::Moved moved;
    {
        const std::lock_guard locked(lock_);
        moved = outbox_.move_to(ring->memory.ring(), std::min(own_.queue_batches, welcome->batches),
                                welcome->batch_bytes);
        if (moved.dropped != 0) count(own_.counters.lost_batches, moved.dropped);
        ring_ = ring;
        peer_batch_bytes_ = welcome->batch_bytes;
    }
    std::array<std::uint8_t, Hello::kBytes> hello;
    write_packet(hello.data(),
                 Hello{own_.address, destination_, moved.first, moved.batches,
                       static_cast<std::uint32_t>(bytes), moved.first_is_repeated ? 1U : 0U, 0});
    if (!send_packet(socket_, hello, memory, ring->doorbell)) return end(kAsksAgain);
    vorn::ring(ring->doorbell);
    {
        const std::lock_guard locked(lock_);
        is_up_ = true;
    }
    changed_.notify_all();
}

// The receiver is gone, or left: what it has not handled is for the next one.
void Link::end(Clock::duration until_next) {
    service_.unwatch(socket_, *this);
    socket_.reset();
    awaits_welcome_ = false;
    std::shared_ptr<Ring> ring;
    {
        const std::lock_guard locked(lock_);
        is_up_ = false;
        outbox_.receiver_ended();
        ring = ring_;
    }
    if (ring != nullptr) {  // who waits for it waits for the next one
        ring->memory.ring().header->wakes.fetch_add(1, std::memory_order_release);
        wake_all(ring->memory.ring().header->wakes);
    }
    if (!is_closed_) service_.at(Clock::now() + until_next, connect_);
}

void Link::close() {
    is_closed_ = true;
    service_.forget(connect_);
    service_.unwatch(socket_, *this);
    socket_.reset();
}

}  // namespace vorn
