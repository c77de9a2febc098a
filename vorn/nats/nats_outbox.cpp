// SPDX-License-Identifier: Apache-2.0
#include "vorn/nats/nats_outbox.h"

#include <algorithm>
#include <chrono>

namespace vorn {
namespace {

using namespace std::chrono_literals;

// Before packets are published again that a server refused: doubled each time, up to the longest.
constexpr auto kShortestPause = 10ms;
constexpr std::uint32_t kMostDoublings = 5;

}  // namespace

std::uint8_t* NatsOutbox::add(std::uint32_t bytes, std::uint32_t most_bytes) {
    if (is_last_open_) {
        Packet& last = packets_.back();
        if (last.head.count < kMostBatches && last.bytes.size() + bytes <= most_bytes) {
            last.bytes.resize(last.bytes.size() + bytes);
            ++last.head.count;
            ++next_;
            ++pending_batches_;
            pending_bytes_ += bytes;
            return last.bytes.data() + last.bytes.size() - bytes;
        }
    }
    Packet packet;
    packet.head = {session_, next_, 1, 0, 0};
    packet.bytes.reserve(std::max<std::size_t>(NatsPacket::kBytes + std::size_t{bytes}, 256));
    packet.bytes.resize(NatsPacket::kBytes + std::size_t{bytes});
    packets_.push_back(std::move(packet));
    is_last_open_ = true;
    ++next_;
    ++pending_batches_;
    pending_bytes_ += bytes;
    return packets_.back().bytes.data() + NatsPacket::kBytes;
}

const NatsOutbox::Packet* NatsOutbox::publish(Deadline now) {
    if (published_ != 0 && now - packets_.front().published >= kAnswerTime) go_back(now);
    if (published_ == packets_.size() || published_ == kMostPublished || now < resume_) return nullptr;
    Packet& packet = packets_[published_++];
    if (published_ == packets_.size()) is_last_open_ = false;
    packet.published = now;
    packet.head.pending = static_cast<std::uint32_t>(packet.head.first - packets_.front().head.first);
    ++packet.head.attempt;
    write_packet(packet.bytes.data(), packet.head);
    return &packet;
}

Deadline NatsOutbox::wake_at() const {
    if (packets_.empty()) return Deadline::max();
    if (published_ != 0) return packets_.front().published + kAnswerTime;
    return resume_;
}

std::size_t NatsOutbox::find(std::uint64_t first) const {
    const auto found = std::lower_bound(
        packets_.begin(), packets_.end(), first,
        [](const Packet& packet, std::uint64_t number) { return packet.head.first < number; });
    const bool is_known = found != packets_.end() && found->head.first == first && found->head.attempt != 0;
    return is_known ? static_cast<std::size_t>(found - packets_.begin()) : packets_.size();
}

void NatsOutbox::stored(std::uint64_t first, std::uint32_t attempt, std::uint64_t position, Deadline now) {
    const std::size_t at = find(first);
    if (at == packets_.size()) return;
    packets_[at].position = std::max(packets_[at].position, position);
    // A stream answers in order: what was published before, and has no answer, is missing.
    const bool is_of_round = is_of_this_round(at, attempt);
    take_off_the_stored();
    if (is_of_round && !packets_.empty() && packets_.front().head.first < first) go_back(now);
}

// A packet is stored for sure if a copy of it comes after one of the packet before, for which this holds too.
void NatsOutbox::take_off_the_stored() {
    while (!packets_.empty() && packets_.front().position > last_position_) {
        const Packet& front = packets_.front();
        stored_.push_back({front.position, front.head.count});
        last_position_ = front.position;
        stored_batches_ += front.head.count;
        pending_batches_ -= front.head.count;
        pending_bytes_ -= front.bytes.size() - NatsPacket::kBytes;
        packets_.pop_front();
        if (published_ != 0) --published_;
        failures_ = 0;
    }
}

void NatsOutbox::not_stored(std::uint64_t first, std::uint32_t attempt, Deadline now) {
    const std::size_t at = find(first);
    if (at == packets_.size() || !is_of_this_round(at, attempt)) return;
    go_back(now + kShortestPause * (1U << std::min(failures_, kMostDoublings)));
    ++failures_;
}

std::uint32_t NatsOutbox::too_large(std::uint64_t first) {
    const std::size_t at = find(first);
    if (at == packets_.size() || packets_[at].bytes.size() == NatsPacket::kBytes) return 0;
    Packet& packet = packets_[at];
    pending_bytes_ -= packet.bytes.size() - NatsPacket::kBytes;
    packet.bytes.resize(NatsPacket::kBytes);
    go_back(resume_);
    return packet.head.count;
}

void NatsOutbox::go_back(Deadline resume) {
    published_ = 0;
    resume_ = resume;
}

void NatsOutbox::handled_before(std::uint64_t position) {
    while (!stored_.empty() && stored_.front().position < position) {
        stored_batches_ -= stored_.front().batches;
        stored_.pop_front();
    }
}

}  // namespace vorn
