// SPDX-License-Identifier: Apache-2.0
#include "vorn/nats/nats_sender.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

namespace vorn {
namespace {

using namespace std::chrono_literals;

constexpr auto kLongestLook = 1000ms;
constexpr auto kShortestLook = 200ms;
constexpr auto kBetweenLooks = 10ms;  // while there is no capacity
constexpr auto kLookAgain = 1ms;      // where some was found

// How often the thread looks whether an answer is overdue.
constexpr auto kTick = 10ms;

std::int64_t wait_of_look(Deadline end) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
    return std::clamp<std::chrono::milliseconds>(left, kShortestLook, kLongestLook).count();
}

}  // namespace

bool NatsSender::open(natsConnection* connection, jsCtx* jetstream) {
    connection_ = connection;
    jetstream_ = jetstream;
    natsInbox* made = nullptr;
    if (natsInbox_Create(&made) != NATS_OK) return false;
    inbox_ = made;
    natsInbox_Destroy(made);
    inbox_ += '.';
    const auto on_answer = [](natsConnection*, natsSubscription*, natsMsg* answer, void* self) {
        const NatsMessage owned(answer);
        static_cast<NatsSender*>(self)->take_answer(natsMsg_GetSubject(answer), answer);
    };
    if (!answers_.begin(connection, inbox_ + ">", on_answer, this, own_.log)) return false;
    static_cast<void>(natsSubscription_SetPendingLimits(answers_.get(), -1, -1));
    thread_ = start_thread([this] { run(); });
    return true;
}

void NatsSender::end() {
    answers_.end();
    if (!thread_.joinable()) return;
    {
        const std::lock_guard locked(lock_);
        ends_ = true;
    }
    has_work_.notify_one();
    thread_.join();
}

// What is not answered in time, or was refused, is published again from here.
void NatsSender::run() {
    std::unique_lock locked(lock_);
    while (!ends_) {
        has_work_.wait(locked, [this] { return !is_idle_ || ends_; });
        has_work_.wait_for(locked, kTick, [this] { return ends_; });
        bool is_idle = true;
        for (const auto& [destination, lane] : lanes_) {
            const std::lock_guard in_lane(lane->lock);
            if (lane->outbox.wake_at() <= Clock::now()) publish(*lane, destination);
            is_idle &= lane->outbox.pending_batches() == 0;
        }
        is_idle_ = is_idle;
    }
}

Result NatsSender::send(const Outgoing& batch, SendTimeout& timeout) {
    const std::uint32_t destination = batch.header.destination;
    Lane& lane = lane_to(destination);
    bool begins = false;
    {
        std::unique_lock locked(lane.lock);
        if (const Result result = wait_for_capacity(lane, locked, batch.header, timeout);
            result != VORN_BUS_OK)
            return result;
        begins = lane.outbox.pending_batches() == 0;
        const std::uint32_t most =
            std::min(NatsOutbox::kMostBytes, static_cast<std::uint32_t>(most_payload()));
        write_batch(lane.outbox.add(batch.header.bytes, most), batch.header, batch.descriptors);
        lane.bytes -= std::min<std::uint64_t>(lane.bytes, batch.header.bytes);
        publish(lane, destination);
    }
    if (!begins) return VORN_BUS_OK;
    {
        const std::lock_guard locked(lock_);
        is_idle_ = false;
    }
    has_work_.notify_one();
    return VORN_BUS_OK;
}

NatsSender::Lane& NatsSender::lane_to(std::uint32_t destination) {
    const std::lock_guard locked(lock_);
    auto& lane = lanes_[destination];
    if (lane == nullptr) lane = std::make_unique<Lane>(url_.batches(destination));
    return *lane;
}

// Of a message, by the server.
std::uint64_t NatsSender::most_payload() const {
    return static_cast<std::uint64_t>(std::max<std::int64_t>(natsConnection_GetMaxPayload(connection_), 0));
}

bool NatsSender::fits(const Lane& lane, const BatchHeader& batch) const {
    if (!lane.limits || !is_connected(connection_)) return false;
    return lane.outbox.batches() < std::min(lane.limits->batches, own_.queue_batches) &&
           lane.bytes >= batch.bytes && batch.bytes <= lane.limits->batch_bytes &&
           batch.bytes + NatsPacket::kBytes <= most_payload();
}

// The stream could refuse what is too much by itself. But each of its servers would count for itself, at its
// own time, and what one of them stores and another refuses makes them different for ever.
Result NatsSender::wait_for_capacity(Lane& lane, std::unique_lock<std::mutex>& locked,
                                     const BatchHeader& batch, SendTimeout& timeout) {
    while (!fits(lane, batch)) {
        if (lane.is_looked_at) {
            lane.changed.wait_until(locked, timeout.end());
            if (lane.is_looked_at && Clock::now() >= timeout.end()) return VORN_BUS_FULL;
            continue;
        }
        if (const auto now = Clock::now(); now < lane.next_look && now < timeout.end()) {
            lane.changed.wait_until(locked, std::min(lane.next_look, timeout.end()));
            continue;
        }
        lane.is_looked_at = true;
        locked.unlock();
        Result result = VORN_BUS_NO_MEMORY;
        try {
            result = look_for_capacity(lane, batch, timeout.end());
        } catch (const std::bad_alloc&) {  // the next one shall look again
        }
        locked.lock();
        lane.is_looked_at = false;
        lane.changed.notify_all();
        lane.next_look = Clock::now() + (result == VORN_BUS_OK ? kLookAgain : kBetweenLooks);
        if (result == VORN_BUS_TOO_LARGE || result == VORN_BUS_NO_MEMORY) return result;
        if (result != VORN_BUS_OK && Clock::now() >= timeout.end()) return result;
    }
    return VORN_BUS_OK;
}

Result NatsSender::look_for_capacity(Lane& lane, const BatchHeader& batch, Deadline end) {
    if (!is_connected(connection_)) return VORN_BUS_NO_PEER;
    const std::string stream = url_.stream(batch.destination);
    jsOptions options = {};
    jsOptions_Init(&options);
    options.Wait = wait_of_look(end);
    jsStreamInfo* made = nullptr;
    jsErrCode code = {};
    const natsStatus status = js_GetStreamInfo(&made, jetstream_, stream.c_str(), &options, &code);
    const StreamInfo info(made);
    if (status != NATS_OK) return VORN_BUS_NO_PEER;
    const auto limits = read_limits(info->Config->Description);
    if (!limits) {
        own_.log.warning("stream ", stream, " is not one of this bus");
        return VORN_BUS_NO_PEER;
    }
    if (batch.bytes > limits->batch_bytes || batch.bytes + NatsPacket::kBytes > most_payload())
        return VORN_BUS_TOO_LARGE;
    const auto& state = info->State;
    const std::uint64_t most_batches = std::min(limits->batches, own_.queue_batches);
    const std::uint64_t most_bytes = std::min(limits->bytes, own_.queue_bytes);
    const std::lock_guard locked(lane.lock);
    lane.limits = limits;
    lane.outbox.handled_before(state.Msgs == 0 ? state.LastSeq + 1 : state.FirstSeq);
    // Of others in the stream the messages are known, and not how many batches they have.
    const std::uint64_t own_packets = std::min<std::uint64_t>(lane.outbox.stored_packets(), state.Msgs);
    const std::uint64_t batches = lane.outbox.batches() + (state.Msgs - own_packets);
    const std::uint64_t bytes = state.Bytes + lane.outbox.pending_bytes();
    if (batches != 0 && (batches >= most_batches || bytes + batch.bytes > most_bytes)) return VORN_BUS_FULL;
    // Other senders look as well: none takes all that is left.
    lane.bytes = std::max<std::uint64_t>(most_bytes > bytes ? (most_bytes - bytes) / 4 : 0, batch.bytes);
    return VORN_BUS_OK;
}

// With the lane's lock. What cannot be published now is tried again by the thread.
void NatsSender::publish(Lane& lane, std::uint32_t destination) noexcept {
    while (is_connected(connection_)) {
        const NatsOutbox::Packet* const packet = lane.outbox.publish(Clock::now());
        if (packet == nullptr) return;
        const NatsPacket& head = packet->head;
        natsStatus status = NATS_NO_MEMORY;
        try {
            const std::string answer_to = inbox_ + std::to_string(destination) + '.' +
                                          std::to_string(head.first) + '.' + std::to_string(head.attempt);
            status =
                natsConnection_PublishRequest(connection_, lane.subject.c_str(), answer_to.c_str(),
                                              packet->bytes.data(), static_cast<int>(packet->bytes.size()));
        } catch (const std::bad_alloc&) {  // NOLINT(bugprone-empty-catch): as any other failure
        }
        if (status == NATS_MAX_PAYLOAD) {
            not_taken(lane, head.first);
        } else if (status != NATS_OK) {
            return lane.outbox.not_stored(head.first, head.attempt, Clock::now());
        }
    }
}

void NatsSender::not_taken(Lane& lane, std::uint64_t first) {
    const std::uint32_t lost = lane.outbox.too_large(first);
    count(own_.counters.lost_batches, lost);
    own_.log.warning(lost, " batches to ", lane.subject,
                     " are lost: the server takes no message of their size");
}

void NatsSender::take_answer(const char* subject, natsMsg* answer) {
    // inbox_, then destination, first and attempt.
    std::array<std::uint64_t, 3> numbers = {};
    const char* at = subject + inbox_.size();
    const char* const end = subject + std::strlen(subject);
    for (std::uint64_t& number : numbers) {
        const auto [after, fault] = std::from_chars(at, end, number);
        if (fault != std::errc()) return;
        at = after == end ? after : after + 1;
    }
    const auto [destination, first, attempt] = numbers;
    Lane* lane = nullptr;
    {
        const std::lock_guard locked(lock_);
        const auto found = lanes_.find(static_cast<std::uint32_t>(destination));
        if (found != lanes_.end()) lane = found->second.get();
    }
    if (lane == nullptr) return;
    const std::lock_guard locked(lane->lock);
    const auto now = Clock::now();
    try {
        NatsAnswer said;
        if (!natsMsg_IsNoResponders(answer)) {
            said = read_answer(
                {natsMsg_GetData(answer), static_cast<std::size_t>(natsMsg_GetDataLength(answer))});
        }
        if (said.position != 0) {
            lane->outbox.stored(first, static_cast<std::uint32_t>(attempt), said.position, now);
        } else if (said.error == JSStreamMessageExceedsMaximumErr) {
            not_taken(*lane, first);
        } else {
            lane->outbox.not_stored(first, static_cast<std::uint32_t>(attempt), now);
        }
    } catch (const std::bad_alloc&) {  // NOLINT(bugprone-empty-catch): as if the answer were lost
    }
    publish(*lane, static_cast<std::uint32_t>(destination));
    if (lane->outbox.pending_batches() == 0) lane->changed.notify_all();
}

bool NatsSender::drain(Deadline deadline) {
    const auto lane_from = [this](std::uint64_t destination) {
        const std::lock_guard locked(lock_);
        return lanes_.lower_bound(static_cast<std::uint32_t>(destination));  // lanes are never taken away
    };
    for (auto at = lane_from(0); at != lanes_.end();) {
        Lane& lane = *at->second;
        {
            std::unique_lock locked(lane.lock);
            const auto is_stored = [&lane] { return lane.outbox.pending_batches() == 0; };
            if (!lane.changed.wait_until(locked, deadline, is_stored)) return false;
        }
        if (at->first == UINT32_MAX) return true;
        at = lane_from(std::uint64_t{at->first} + 1);
    }
    return true;
}

std::uint64_t NatsSender::batches_on_their_way() {
    const std::lock_guard locked(lock_);
    std::uint64_t batches = 0;
    for (const auto& [destination, lane] : lanes_) {
        const std::lock_guard in_lane(lane->lock);
        batches += lane->outbox.pending_batches();
    }
    return batches;
}

void NatsSender::connected_again() {
    const std::lock_guard locked(lock_);
    for (const auto& [destination, lane] : lanes_) {
        const std::lock_guard in_lane(lane->lock);
        lane->outbox.interrupted(Clock::now());
    }
}

}  // namespace vorn
