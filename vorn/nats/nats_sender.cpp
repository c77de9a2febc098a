// SPDX-License-Identifier: Apache-2.0
#include "vorn/nats/nats_sender.h"

#include <algorithm>
#include <new>
#include <thread>
#include <utility>

namespace vorn {
namespace {

using namespace std::chrono_literals;

// How long one attempt waits for the stream's word. The next has the same number.
constexpr auto kAttempt = 1000ms;
constexpr auto kShortestAttempt = 200ms;
constexpr auto kBetweenAttempts = 10ms;

std::int64_t wait_of_attempt(Deadline end) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
    return std::clamp<std::chrono::milliseconds>(left, kShortestAttempt, kAttempt).count();
}

}  // namespace

NatsSender::NatsSender(const NatsUrl& url, const Endpoint& own, natsConnection* connection, jsCtx* jetstream)
    : url_(url), own_(own), connection_(connection), jetstream_(jetstream) {}

Result NatsSender::send(const Outgoing& batch, SendTimeout& timeout) {
    const std::uint32_t destination = batch.header.destination;
    Queue& queue = queue_to(destination);
    if (const Result result = take_capacity(queue, batch.header, timeout); result != VORN_BUS_OK)
        return result;

    Session session;
    {
        const std::lock_guard locked(queue.lock);
        if (queue.idle.empty()) {
            session.name = random_name();
        } else {
            session = queue.idle.back();
            queue.idle.pop_back();
        }
    }
    std::vector<std::uint8_t> packet(Data::kBytes + std::size_t{batch.header.bytes});
    write_packet(packet.data(), Data{session.name, ++session.sent, 1, 0});
    write_batch(packet.data() + Data::kBytes, batch.header, batch.descriptors);
    const Result result = publish(url_.batches(destination), packet, timeout.end());
    try {
        const std::lock_guard locked(queue.lock);
        queue.idle.push_back(session);
    } catch (const std::bad_alloc&) {  // NOLINT(bugprone-empty-catch): the next batch begins another session
    }
    if (result == VORN_BUS_OUTCOME_UNKNOWN) count(own_.counters.lost_batches);
    return result;
}

NatsSender::Queue& NatsSender::queue_to(std::uint32_t destination) {
    const std::lock_guard locked(lock_);
    auto& queue = queues_[destination];
    if (queue == nullptr) queue = std::make_unique<Queue>();
    return *queue;
}

// The stream could refuse what is too much by itself. But each of its servers would count for itself, at its
// own time, and what one of them stores and another refuses makes them different for ever.
Result NatsSender::take_capacity(Queue& queue, const BatchHeader& batch, SendTimeout& timeout) {
    std::unique_lock locked(queue.lock);
    while (queue.batches == 0 || queue.bytes < batch.bytes) {
        if (queue.looked_at) {
            queue.changed.wait_until(locked, timeout.end());
            if (queue.looked_at && Clock::now() >= timeout.end()) return VORN_BUS_FULL;
            continue;
        }
        queue.looked_at = true;
        locked.unlock();
        Result result = VORN_BUS_NO_MEMORY;
        try {
            result = look_for_capacity(queue, batch, timeout.end());
        } catch (const std::bad_alloc&) {  // the next one shall look again
        }
        locked.lock();
        queue.looked_at = false;
        queue.changed.notify_all();
        if (result == VORN_BUS_OK) continue;
        if (result == VORN_BUS_TOO_LARGE || result == VORN_BUS_NO_MEMORY || Clock::now() >= timeout.end())
            return result;
        queue.changed.wait_until(locked, std::min(timeout.end(), Clock::now() + kBetweenAttempts));
    }
    --queue.batches;
    queue.bytes -= batch.bytes;
    return VORN_BUS_OK;
}

Result NatsSender::look_for_capacity(Queue& queue, const BatchHeader& batch, Deadline end) {
    if (!is_connected(connection_)) return VORN_BUS_NO_PEER;
    jsOptions options = {};
    jsOptions_Init(&options);
    options.Wait = wait_of_attempt(end);
    jsStreamInfo* made = nullptr;
    jsErrCode code = {};
    const natsStatus status =
        js_GetStreamInfo(&made, jetstream_, url_.stream(batch.destination).c_str(), &options, &code);
    const StreamInfo info(made);
    if (status != NATS_OK) return VORN_BUS_NO_PEER;
    const auto limits = read_limits(info->Config->Description);
    if (!limits) {
        own_.log.line_about_outside("stream ", url_.stream(batch.destination), " is not one of this bus");
        return VORN_BUS_NO_PEER;
    }
    if (batch.bytes > limits->batch_bytes) return VORN_BUS_TOO_LARGE;
    const std::uint64_t most_batches = std::min(limits->batches, own_.queue_batches);
    const std::uint64_t most_bytes = std::min(limits->bytes, own_.queue_bytes);
    const bool empty = info->State.Msgs == 0;
    if (!empty && (info->State.Msgs >= most_batches || info->State.Bytes + batch.bytes > most_bytes)) {
        return VORN_BUS_FULL;
    }
    // Other senders look as well: none takes all that is left.
    const std::lock_guard locked(queue.lock);
    queue.batches = empty ? most_batches : most_batches - info->State.Msgs;
    queue.bytes = empty ? most_bytes : most_bytes - info->State.Bytes;
    queue.batches = std::max<std::uint64_t>(queue.batches / 4, 1);
    queue.bytes = std::max<std::uint64_t>(queue.bytes / 4, batch.bytes);
    return VORN_BUS_OK;
}

Result NatsSender::publish(const std::string& subject, const std::vector<std::uint8_t>& packet,
                           Deadline end) {
    bool is_unknown = false;
    for (;;) {
        const Result result = attempt(subject, packet, end);
        if (result == VORN_BUS_OK || result == VORN_BUS_TOO_LARGE) return result;
        is_unknown |= result == VORN_BUS_OUTCOME_UNKNOWN;
        const auto now = Clock::now();
        if (now >= end) return is_unknown ? VORN_BUS_OUTCOME_UNKNOWN : result;
        std::this_thread::sleep_for(std::min<Clock::duration>(kBetweenAttempts, end - now));
    }
}

Result NatsSender::attempt(const std::string& subject, const std::vector<std::uint8_t>& packet,
                           Deadline end) {
    // Not into the client's buffer, from where it would go some time later.
    if (!is_connected(connection_)) return VORN_BUS_NO_PEER;
    jsPubOptions options = {};
    jsPubOptions_Init(&options);
    options.MaxWait = wait_of_attempt(end);
    jsErrCode code = {};
    const natsStatus status = js_Publish(nullptr, jetstream_, subject.c_str(), packet.data(),
                                         static_cast<int>(packet.size()), &options, &code);
    if (status == NATS_OK) return VORN_BUS_OK;
    if (status == NATS_NO_RESPONDERS) return VORN_BUS_NO_PEER;  // no stream, or no leader of it now
    if (status == NATS_MAX_PAYLOAD || code == JSStreamMessageExceedsMaximumErr) return VORN_BUS_TOO_LARGE;
    if (code == JSStreamStoreFailedErr || code == JSInsufficientResourcesErr) return VORN_BUS_FULL;
    return VORN_BUS_OUTCOME_UNKNOWN;
}

}  // namespace vorn
