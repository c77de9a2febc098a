// SPDX-License-Identifier: Apache-2.0
#include "vorn/ipc/intake.h"

#include <algorithm>
#include <array>
#include <utility>

#include "vorn/ipc/futex.h"

namespace vorn {
namespace {

// This number of bytes of batches is copied out together, or one batch.
constexpr std::size_t kTogether = 64U << 10;

// Whether a record is as long as the batch in it claims, and from its sender; the rest of the envelope is
// verified as it is read.
bool holds_one_batch(const std::uint8_t* record, std::uint32_t bytes, std::uint32_t source) {
    return bytes >= kBatchHeaderBytes && get<std::uint32_t>(record + kBatchHeaderBytes - 4) == bytes &&
           get<std::uint32_t>(record + kPreambleBytes + 4) == source;
}

}  // namespace

Intake::Intake(const Endpoint& own, const Descriptor& readable, std::function<void()> has_cut_off)
    : own_(own), has_cut_off_(std::move(has_cut_off)), rings_(readable, own.spin_us), storage_(kTogether) {
    delivery_.intake = this;
}

void Intake::RingDelivery::batch_handled() {
    RingReader& reader = source->reader;
    if (reader.handle(++number)) wake_all(reader.header()->wakes);
}

void Intake::RingDelivery::finished() {
    if (number != last) intake->cut_off(*source, "an envelope that is none");  // which is counted by then
}

void Intake::cut_off(RingSet::Source& source, const char* why) {
    own_.log.warning("the sender at address ", source.address, " is cut off: its ring has ", why);
    rings_.remove(source);
    has_cut_off_();
}

Delivery* Intake::front(Deadline deadline) {
    if (delivery_.source != nullptr) return &delivery_;
    for (;;) {
        RingSet::Source* const source = rings_.next(deadline);
        if (source == nullptr) return nullptr;
        if (copy_out(*source)) return &delivery_;
    }
}

// Throws bad_alloc before anything is taken.
bool Intake::copy_out(RingSet::Source& source) {
    RingReader& reader = source.reader;
    const std::uint64_t before = reader.taken();
    std::size_t used = 0;
    std::uint32_t bytes = 0;
    RingReader::Found found = reader.find(bytes);
    if (found == RingReader::Found::record && bytes > storage_.size()) storage_.resize(bytes);
    while (found == RingReader::Found::record && bytes <= storage_.size() - used) {
        reader.copy(storage_.data() + used, bytes);
        if (!holds_one_batch(storage_.data() + used, bytes, source.address)) {
            found = RingReader::Found::broken;
            break;
        }
        used += bytes;
        if (used >= kTogether) break;
        found = reader.find(bytes);
    }
    if (found == RingReader::Found::broken) {
        count(own_.counters.damaged);
        cut_off(source, "what its writer never writes");
        return false;
    }
    if (used == 0) return false;
    delivery_.source = &source;
    delivery_.number = before;
    delivery_.last = reader.taken();
    delivery_.batches = static_cast<std::uint32_t>(delivery_.last - before);
    delivery_.bytes = Bytes(storage_).first(used);
    delivery_.handled_messages = 0;
    delivery_.repeated = std::exchange(source.first_is_repeated, false);
    if (watcher_count_.load(std::memory_order_relaxed) != 0) copy_to_watchers(delivery_.bytes);
    return true;
}

void Intake::copy_to_watchers(Bytes batches) {
    const std::uint64_t time = nanoseconds_now();
    const std::lock_guard locked(watchers_lock_);
    for (Watcher* const watcher : watchers_) {
        RingWriter& writer = watcher->writer;
        bool sleeps = false;
        for (std::size_t at = 0; at < batches.size();) {
            const auto bytes = get<std::uint32_t>(batches.data() + at + kBatchHeaderBytes - 4);
            const std::uint32_t size = kCopyHeadBytes + bytes;
            std::uint8_t* to = writer.reserve(size);
            if (to == nullptr && writer.note_handled()) to = writer.reserve(size);
            if (to == nullptr) {
                writer.leave_out();
            } else {
                put(to, writer.offered() + 1);
                put(to + 8, time);
                std::copy_n(batches.data() + at, bytes, to + kCopyHeadBytes);
                sleeps |= writer.publish();
            }
            at += bytes;
        }
        std::array<std::uint8_t, kPreambleBytes> wake;
        put_preamble(wake.data(), Kind::wake);
        if (sleeps) static_cast<void>(send_packet(*watcher->socket, wake));  // full: it wakes for another
    }
}

void Intake::add_watcher(Watcher& watcher) {
    const std::lock_guard locked(watchers_lock_);
    watchers_.push_back(&watcher);
    watcher_count_ = static_cast<std::uint32_t>(watchers_.size());
}

void Intake::remove_watcher(const Watcher& watcher) {
    const std::lock_guard locked(watchers_lock_);
    std::erase(watchers_, &watcher);
    watcher_count_ = static_cast<std::uint32_t>(watchers_.size());
}

void Intake::give_back() {
    if (delivery_.source != nullptr && delivery_.source->is_removed) pop_front();
}

std::uint64_t Intake::batches() const {
    std::uint64_t waiting = 0;
    rings_.each([&waiting](const RingSet::Source& source) {
        const std::uint64_t handled = source.reader.handled();
        if (!source.is_removed) {
            waiting += std::min<std::uint64_t>(source.reader.published() - handled, source.reader.most());
        }
    });
    return waiting;
}

}  // namespace vorn
