// SPDX-License-Identifier: Apache-2.0
#include "vorn/nats/nats_address.h"

#include <algorithm>
#include <string>
#include <thread>

#include "vorn/nats/nats_errors.h"
#include "vorn/nats/nats_outbox.h"
#include "vorn/nats/nats_query.h"

namespace vorn {
namespace {

using namespace std::chrono_literals;

constexpr std::int64_t kNanoseconds = 1'000'000'000;

// The receiver looks for what is forgotten by itself; so this may be longer than a handler and its queue
// take.
constexpr std::int64_t kAckWait = 60 * kNanoseconds;
constexpr std::int64_t kMostUnacknowledged = 512;

// Until the server has noticed that this process is connected.
constexpr auto kNoticed = 1500ms;

}  // namespace

jsOptions short_wait() {
    jsOptions options = {};
    jsOptions_Init(&options);
    options.Wait = 1000;
    return options;
}

NatsAddress::NatsAddress(const NatsUrl& url, const Endpoint& own, natsConnection* connection,
                         jsCtx* jetstream)
    : url_(url),
      own_(own),
      connection_(connection),
      jetstream_(jetstream),
      stream_(url.stream(own.address)) {}

Result NatsAddress::refused(const std::string& what, natsStatus status, jsErrCode code) {
    fault_ = what + ": " + nats_reason(status, code);
    may_pass_ = may_pass(status, code);
    return VORN_BUS_SYSTEM_ERROR;
}

Result NatsAddress::take(NatsHandling& handling) {
    if (has_receiver(jetstream_, stream_))
        return VORN_BUS_ADDRESS_TAKEN;  // before its stream's limits are changed
    StreamInfo stream;
    if (const Result result = make_stream(stream); result != VORN_BUS_OK) return result;
    Journal& journal = handling.journal;

    // The journal is right if the server still has its name: then nobody else has received meanwhile.
    const Named named = who_is_named(journal.name(), &delivered_before_);
    if (named == Named::unknown) return refused("consumer of stream " + stream_, NATS_TIMEOUT, {});
    const bool goes_on = journal.is_about(stream->Created) && named != Named::another;
    const std::uint64_t name = goes_on ? journal.name() : random_name();
    if (!subscribe(name)) return VORN_BUS_SYSTEM_ERROR;
    const auto asked = Clock::now();
    ConsumerInfo consumer;
    jsErrCode code = {};
    const natsStatus status = make_consumer(name, consumer, code);
    if (code == JSConsumerNameExistErr || code == JSConsumerExistingActiveErr) return VORN_BUS_ADDRESS_TAKEN;
    if (status != NATS_OK) return refused("consumer of stream " + stream_, status, code);
    first_ = stream->State.FirstSeq;
    if (!goes_on) journal.begin(stream->Created, name, delivered_before_);
    if (journal.delivered_before() != 0 && journal.started() == 0) {
        own_.log.info(
            "another process has received for this address before, and its journal is not here: what it had ",
            "been given comes as repeated, in ", NatsLease::kTime.count(), " seconds");
        handling.lease.wait_for_another(Clock::now());
    }
    handling.lease.renew(asked);
    handling.handled = journal.finished();

    // From now on, not some time later when the server has noticed, others find the address taken.
    const Deadline noticed = Clock::now() + kNoticed;
    while (!has_receiver(jetstream_, stream_) && Clock::now() < noticed) std::this_thread::sleep_for(5ms);
    return VORN_BUS_OK;
}

Result NatsAddress::make_stream(StreamInfo& made) {
    const std::string subject = url_.batches(own_.address);
    const char* const subjects[] = {subject.c_str()};
    const std::string limits = limits_text({own_.queue_batches, own_.queue_bytes, own_.batch_bytes});
    jsStreamConfig config = {};
    jsStreamConfig_Init(&config);
    config.Name = stream_.c_str();
    config.Description = limits.c_str();
    config.Subjects = const_cast<const char**>(subjects);
    config.SubjectsLen = 1;
    config.Retention = js_WorkQueuePolicy;
    // Senders pack batches together.
    config.MaxMsgSize =
        static_cast<std::int32_t>(std::max(own_.batch_bytes + NatsPacket::kBytes, NatsOutbox::kMostBytes));
    config.Storage = js_FileStorage;
    config.Replicas = url_.replicas;
    jsErrCode code = {};
    jsStreamInfo* info = nullptr;
    natsStatus status = js_AddStream(&info, jetstream_, &config, nullptr, &code);
    if (code == JSStreamNameExistErr) status = js_UpdateStream(&info, jetstream_, &config, nullptr, &code);
    made.reset(info);
    return status == NATS_OK ? VORN_BUS_OK : refused("stream " + stream_, status, code);
}

natsStatus NatsAddress::make_consumer(std::uint64_t name, ConsumerInfo& made, jsErrCode& code) {
    const std::string deliveries = url_.deliveries(own_.address, name);
    jsConsumerConfig config = {};
    jsConsumerConfig_Init(&config);
    config.Durable = kNatsConsumer;
    config.AckPolicy = js_AckExplicit;
    config.AckWait = kAckWait;
    config.MaxAckPending = kMostUnacknowledged;
    config.DeliverSubject = deliveries.c_str();
    jsConsumerInfo* info = nullptr;
    const natsStatus status = js_AddConsumer(&info, jetstream_, stream_.c_str(), &config, nullptr, &code);
    made.reset(info);
    return status;
}

bool NatsAddress::subscribe(std::uint64_t name) {
    natsSubscription* made = nullptr;
    natsStatus status =
        natsConnection_SubscribeSync(&made, connection_, url_.deliveries(own_.address, name).c_str());
    deliveries_.reset(made);
    if (status == NATS_OK)
        status = natsSubscription_SetPendingLimits(made, -1, -1);  // the server's are lower
    if (status == NATS_OK) status = natsConnection_FlushTimeout(connection_, 2000);
    if (status != NATS_OK) refused("subscription to deliveries of stream " + stream_, status, {});
    return status == NATS_OK;
}

NatsAddress::Named NatsAddress::who_is_named(std::uint64_t name, std::uint64_t* delivered) {
    jsConsumerInfo* found = nullptr;
    jsOptions timeout = short_wait();
    jsErrCode code = {};
    const natsStatus status =
        js_GetConsumerInfo(&found, jetstream_, stream_.c_str(), kNatsConsumer, &timeout, &code);
    const ConsumerInfo info(found);
    if (code == JSConsumerNotFoundErr) return Named::nobody;
    if (status != NATS_OK || info->Config == nullptr || info->Config->DeliverSubject == nullptr)
        return Named::unknown;
    if (delivered != nullptr) *delivered = info->Delivered.Stream;
    return info->Config->DeliverSubject == url_.deliveries(own_.address, name) ? Named::this_one
                                                                               : Named::another;
}

void NatsAddress::name_again(std::uint64_t name) {
    ConsumerInfo made;
    jsErrCode code = {};
    if (make_consumer(name, made, code) == NATS_OK) {
        own_.log.warning("the server had forgotten the consumer of stream ", stream_, "; it is made again");
    }
}

}  // namespace vorn
