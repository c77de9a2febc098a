// SPDX-License-Identifier: Apache-2.0
#include "vorn/nats/nats_fetcher.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <new>
#include <optional>
#include <thread>
#include <utility>

#include "vorn/nats/nats_delivery.h"

namespace vorn {
namespace {

using namespace std::chrono_literals;

// Without a delivery, after which the receiver looks for itself what the stream holds.
constexpr auto kQuiet = 1s;

// Batches in the inbox.
constexpr std::uint64_t kMostInMemory = 4096;

}  // namespace

NatsFetcher::NatsFetcher(NatsAddress& address, const Endpoint& own, jsCtx* jetstream,
                         std::shared_ptr<NatsHandling> handling, std::atomic<bool>& catches_up)
    : address_(address),
      own_(own),
      jetstream_(jetstream),
      handling_(std::move(handling)),
      catches_up_(catches_up),
      intake_(handling_->journal, address.first()),
      next_renewal_(Clock::now() + NatsLease::kRenewal) {
    thread_ = start_thread([this] { run(); });
}

NatsFetcher::~NatsFetcher() {
    ends_ = true;
    thread_.join();
}

void NatsFetcher::run() {
    bool has_begun = false;
    auto quiet_since = Clock::now();
    while (!ends_) try {
            tend_lease();
            has_begun = has_begun || fetch_until(address_.delivered_before() + 1);
            if (!has_begun || handling_->lease.is_lost()) {
                std::this_thread::sleep_for(20ms);
                continue;
            }
            if (catches_up_.exchange(false) && !catch_up()) catches_up_ = true;
            if (Clock::now() - quiet_since > kQuiet) {
                look_for_the_forgotten();
                quiet_since = Clock::now();
            }
            natsMsg* arrived = nullptr;
            const natsStatus status = natsSubscription_NextMsg(&arrived, address_.deliveries(), 100);
            if (status == NATS_OK) {
                quiet_since = Clock::now();
                take(NatsMessage(arrived));
            } else if (status != NATS_TIMEOUT) {
                std::this_thread::sleep_for(20ms);
            }
        } catch (const std::exception& fault) {
            // What it had in its hands is still in the stream.
            catches_up_ = true;
            own_.log.warning("the bus's thread tries again: ", fault.what());
            std::this_thread::sleep_for(kAfterFault);
        }
}

// What the server had delivered to a process or a connection that is gone comes again only after some
// seconds.
bool NatsFetcher::catch_up() {
    jsConsumerInfo* made = nullptr;
    jsErrCode code = {};
    jsOptions timeout = short_wait();
    if (js_GetConsumerInfo(&made, jetstream_, address_.stream().c_str(), kNatsConsumer, &timeout, &code) !=
        NATS_OK)
        return false;
    const ConsumerInfo info(made);
    return fetch_until(info->Delivered.Stream + 1);
}

// A server that was killed may know a delivery or an acknowledgement that its stream does not: what is
// stored would never come, and what is handled would fill the queue for ever.
void NatsFetcher::look_for_the_forgotten() {
    jsStreamInfo* made = nullptr;
    jsOptions options = short_wait();
    if (js_GetStreamInfo(&made, jetstream_, address_.stream().c_str(), &options, nullptr) != NATS_OK) return;
    const StreamInfo info(made);
    if (info->State.Msgs == 0 || !fetch_until(info->State.LastSeq + 1)) return;
    const std::uint64_t handled = handling_->handled.load(std::memory_order_acquire);
    if (info->State.FirstSeq > handled) return;
    options.Stream.Purge.Sequence = handled + 1;
    static_cast<void>(js_PurgeStream(jetstream_, address_.stream().c_str(), &options, nullptr));
}

// Asks who is named at the server, and makes the consumer again that a server has forgotten.
void NatsFetcher::tend_lease() {
    const auto now = Clock::now();
    if (now < next_renewal_ || handling_->lease.is_lost()) return;
    next_renewal_ = now + NatsLease::kRenewal;
    switch (address_.who_is_named(handling_->journal.name())) {
        case NatsAddress::Named::this_one:
            handling_->lease.renew(now);
            break;
        case NatsAddress::Named::another:
            handling_->lease.lose();
            own_.log.error("another process has taken address ", own_.address, " (", address_.stream(),
                           ") while this one was cut off; this bus handles nothing more: close it");
            break;
        case NatsAddress::Named::nobody:
            address_.name_again(handling_->journal.name());
            break;
        case NatsAddress::Named::unknown:
            break;
    }
}

void NatsFetcher::take(NatsMessage message) {
    const char* const acknowledge_to = natsMsg_GetReply(message.get());
    const auto position = acknowledge_to == nullptr ? std::nullopt : read_stream_number(acknowledge_to);
    if (!position) {
        count(own_.counters.damaged);
        own_.log.warning("a delivery without its numbers was left out");
        return;
    }
    if (*position < intake_.next()) {
        count(own_.counters.redelivered_batches);
        // One that waits in the inbox is acknowledged from there.
        if (*position <= handling_->handled.load(std::memory_order_acquire)) {
            static_cast<void>(natsConnection_PublishString(handling_->connection, acknowledge_to, "+ACK"));
        }
        return;
    }
    if (!fetch_until(*position)) return;
    if (*position == intake_.next()) return put(std::move(message));
    count(own_.counters.damaged);
    own_.log.warning("a delivery of a batch that the stream does not have was left out");
}

// Takes from the stream what was not delivered, up to but without `number`. False: not now.
bool NatsFetcher::fetch_until(std::uint64_t number) {
    while (intake_.next() < number) {
        if (ends_) return false;
        tend_lease();
        natsMsg* fetched = nullptr;
        jsOptions options = short_wait();
        jsErrCode code = {};
        const natsStatus status =
            js_GetMsg(&fetched, jetstream_, address_.stream().c_str(), intake_.next(), &options, &code);
        if (status == NATS_OK) {
            put(NatsMessage(fetched));
        } else if (status == NATS_NOT_FOUND || code == JSNoMessageFoundErr) {
            if (!pass_over_the_gone(number)) return false;
        } else {
            std::this_thread::sleep_for(20ms);
            if (!is_connected(handling_->connection)) return false;
        }
    }
    return true;
}

// `number` becomes that after the stream's last, if it is above it: a server that was killed may
// remember deliveries of what its stream does not have.
bool NatsFetcher::pass_over_the_gone(std::uint64_t& number) {
    jsOptions options = short_wait();
    jsStreamInfo* made = nullptr;
    if (js_GetStreamInfo(&made, jetstream_, address_.stream().c_str(), &options, nullptr) != NATS_OK)
        return false;
    const StreamInfo info(made);
    number = std::min(number, info->State.LastSeq + 1);
    const std::uint64_t next = intake_.next();
    if (next >= number) return true;
    const std::uint64_t first = std::clamp(info->State.FirstSeq, next + 1, number);
    count(own_.counters.missed_batches, first - next);
    own_.log.warning(first - next, " messages from ", next, " on are gone from ", address_.stream());
    intake_.pass_over_to(first);
    return true;
}

// What throws leaves the message in the stream, from where it is fetched again.
void NatsFetcher::put(NatsMessage message) {
    // Of the largest queue, only a part is in memory.
    while (!ends_ && own_.inbox.batches() >= kMostInMemory) {
        tend_lease();
        std::this_thread::sleep_for(1ms);
    }
    const Bytes bytes = bytes_of(message);
    const auto packet = read_nats_packet(bytes);
    auto arrived = std::make_unique<NatsDelivery>(std::move(message), intake_.next(), handling_);
    if (!packet) {
        count(own_.counters.damaged);
        own_.log.warning("a damaged message of the stream was left out");
        intake_.take_damaged();
    } else {
        const NatsIntake::Verdict verdict = intake_.take(*packet);
        arrived->judged(verdict);
        if (verdict.is_taken) {
            Bytes from = bytes.subspan(NatsPacket::kBytes);
            for (std::uint32_t known = 0; known < verdict.skip; ++known) {
                const auto batch = read_batch(from);
                from = batch ? from.subspan(batch->header().bytes) : Bytes();
            }
            arrived->hold(*packet, verdict, from);
        } else {
            count(own_.counters.redelivered_batches, packet->count);
        }
    }
    // From here on the message counts as taken: nobody fetches it again.
    std::unique_ptr<Delivery> delivery = std::move(arrived);
    while (delivery != nullptr && !ends_) try {
            static_cast<void>(own_.inbox.put(std::move(delivery)));
            return;
        } catch (const std::bad_alloc&) {
            std::this_thread::sleep_for(kAfterFault);
        }
}

}  // namespace vorn
