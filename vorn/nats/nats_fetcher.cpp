// SPDX-License-Identifier: Apache-2.0
#include "vorn/nats/nats_fetcher.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "vorn/nats/nats_delivery.h"

namespace vorn {
namespace {

using namespace std::chrono_literals;

// Without a delivery, after which the receiver looks for itself what the stream holds.
constexpr auto kQuiet = 1s;

}  // namespace

jsOptions short_wait() {
    jsOptions options = {};
    jsOptions_Init(&options);
    options.Wait = 1000;
    return options;
}

NatsFetcher::NatsFetcher(std::string stream, const Endpoint& own, jsCtx* jetstream,
                         natsSubscription* deliveries, std::shared_ptr<NatsHandling> handling,
                         const Start& start, std::atomic<bool>& catches_up)
    : stream_(std::move(stream)),
      own_(own),
      jetstream_(jetstream),
      deliveries_(deliveries),
      handling_(std::move(handling)),
      start_(start),
      catches_up_(catches_up),
      next_(start.next) {
    for (const Journal::Session& session : handling_->journal.sessions()) {
        taken_[session.name] = {session.last, session.number};
    }
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
            has_begun = has_begun || fetch_until(start_.delivered_before + 1);
            if (!has_begun) {
                std::this_thread::sleep_for(20ms);
                continue;
            }
            if (catches_up_.exchange(false) && !catch_up()) catches_up_ = true;
            if (Clock::now() - quiet_since > kQuiet) {
                look_for_the_forgotten();
                quiet_since = Clock::now();
            }
            natsMsg* arrived = nullptr;
            const natsStatus status = natsSubscription_NextMsg(&arrived, deliveries_, 100);
            if (status == NATS_OK) {
                quiet_since = Clock::now();
                take(NatsMessage(arrived));
            } else if (status != NATS_TIMEOUT) {
                std::this_thread::sleep_for(20ms);
            }
        } catch (const std::exception& fault) {
            // What it had in its hands is still in the stream.
            catches_up_ = true;
            own_.log.line_about_outside("the bus's thread tries again: ", fault.what());
            std::this_thread::sleep_for(kAfterFault);
        }
}

// What the server had delivered to a process or a connection that is gone comes again only after some
// seconds.
bool NatsFetcher::catch_up() {
    jsConsumerInfo* made = nullptr;
    jsErrCode code = {};
    jsOptions timeout = short_wait();
    if (js_GetConsumerInfo(&made, jetstream_, stream_.c_str(), kNatsConsumer, &timeout, &code) != NATS_OK)
        return false;
    const ConsumerInfo info(made);
    return fetch_until(info->Delivered.Stream + 1);
}

// A server that was killed may know a delivery or an acknowledgement that its stream does not: what is
// stored would never come, and what is handled would fill the queue for ever.
void NatsFetcher::look_for_the_forgotten() {
    jsStreamInfo* made = nullptr;
    jsOptions options = short_wait();
    if (js_GetStreamInfo(&made, jetstream_, stream_.c_str(), &options, nullptr) != NATS_OK) return;
    const StreamInfo info(made);
    if (info->State.Msgs == 0 || !fetch_until(info->State.LastSeq + 1)) return;
    const std::uint64_t handled = handling_->handled.load(std::memory_order_acquire);
    if (info->State.FirstSeq > handled) return;
    options.Stream.Purge.Sequence = handled + 1;
    static_cast<void>(js_PurgeStream(jetstream_, stream_.c_str(), &options, nullptr));
}

void NatsFetcher::take(NatsMessage message) {
    jsMsgMetaData* made = nullptr;
    if (natsMsg_GetMetaData(&made, message.get()) != NATS_OK) {
        count(own_.counters.damaged);
        own_.log.line_about_outside("a delivery without its numbers was left out");
        return;
    }
    const std::unique_ptr<jsMsgMetaData, Destroy<jsMsgMetaData_Destroy>> numbers(made);
    const std::uint64_t number = numbers->Sequence.Stream;
    if (number < next_) {
        count(own_.counters.redelivered_batches);
        // One that waits in the inbox is acknowledged from there.
        if (number <= handling_->handled.load(std::memory_order_acquire)) {
            static_cast<void>(
                natsConnection_PublishString(handling_->connection, natsMsg_GetReply(message.get()), "+ACK"));
        }
        return;
    }
    if (!fetch_until(number)) return;
    if (number == next_) return put(std::move(message));
    count(own_.counters.damaged);
    own_.log.line_about_outside("a delivery of a batch that the stream does not have was left out");
}

// Takes from the stream what was not delivered, up to but without `number`. False: not now.
bool NatsFetcher::fetch_until(std::uint64_t number) {
    while (next_ < number) {
        if (ends_) return false;
        natsMsg* fetched = nullptr;
        jsErrCode code = {};
        const natsStatus status = js_GetMsg(&fetched, jetstream_, stream_.c_str(), next_, nullptr, &code);
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
    if (js_GetStreamInfo(&made, jetstream_, stream_.c_str(), &options, nullptr) != NATS_OK) return false;
    const StreamInfo info(made);
    number = std::min(number, info->State.LastSeq + 1);
    if (next_ >= number) return true;
    const std::uint64_t first = std::clamp(info->State.FirstSeq, next_ + 1, number);
    count(own_.counters.missed_batches, first - next_);
    own_.log.line_about_outside(first - next_, " batches from ", next_, " on are gone from the server");
    next_ = first;
    return true;
}

// What throws leaves the message in the stream, from where it is fetched again.
void NatsFetcher::put(NatsMessage message) {
    // Of the largest queue, no more are in memory than the server delivers ahead.
    while (!ends_ && own_.inbox.batches() >= kNatsMostUnacknowledged) std::this_thread::sleep_for(1ms);
    std::unique_ptr<Delivery> delivery;
    auto arrived = std::make_unique<NatsDelivery>(std::move(message), next_, handling_);
    const auto data = read_data(arrived->packet());
    const bool is_packet = data && data->count == 1;
    Taken* const taken = is_packet ? &taken_of(data->session) : nullptr;
    const bool is_new = is_packet && data->first > taken->last;
    if (!is_packet) {
        count(own_.counters.damaged);
        own_.log.line_about_outside("a damaged message of the stream was left out");
    } else if (!is_new) {
        count(own_.counters.redelivered_batches);
    } else {
        arrived->hold_batch(*data);
        arrived->repeated = next_ == start_.interrupted;
    }
    delivery = std::move(arrived);
    own_.inbox.put(std::move(delivery));
    if (is_new) *taken = {data->first, next_};
    ++next_;
}

NatsFetcher::Taken& NatsFetcher::taken_of(std::uint64_t session) {
    if (taken_.size() >= 2 * Journal::kSessions) forget_the_silent();
    return taken_[session];
}

void NatsFetcher::forget_the_silent() {
    std::vector<std::uint64_t> numbers;
    for (const auto& [session, taken] : taken_) numbers.push_back(taken.number);
    const auto middle = numbers.begin() + static_cast<std::ptrdiff_t>(numbers.size() / 2);
    std::nth_element(numbers.begin(), middle, numbers.end());
    std::erase_if(taken_, [oldest = *middle](const auto& entry) { return entry.second.number < oldest; });
}

}  // namespace vorn
