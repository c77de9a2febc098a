// SPDX-License-Identifier: Apache-2.0
// nats:// by JetStream. Each address has a stream, which keeps what is sent to it until it is handled; it is
// made when the address is opened for the first time.
//
// A send is over when the stream has stored the batch; until then it is repeated. The server's own list of
// ids would forget those of messages that are gone when it starts again, and then its replicas differ; so
// receivers recognise by session and number what was stored twice. A journal keeps for the next process what
// was handled.
#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include "vorn/core/transport.h"
#include "vorn/nats/nats_connection.h"
#include "vorn/nats/nats_delivery.h"
#include "vorn/nats/nats_fetcher.h"
#include "vorn/nats/nats_query.h"
#include "vorn/nats/nats_sender.h"

namespace vorn {
namespace {

using namespace std::chrono_literals;

constexpr std::int64_t kNanoseconds = 1'000'000'000;

// The receiver looks for what is forgotten by itself; so this may be longer than a handler and its queue
// take.
constexpr std::int64_t kAckWait = 60 * kNanoseconds;

// After a kill, until the server has seen that the connection is gone.
constexpr auto kOpenTimeout = 1500ms;

class NatsTransport final : public Transport {
  public:
    NatsTransport(NatsUrl url, const Endpoint& own) : url_(std::move(url)), own_(own) {}

    ~NatsTransport() override {
        stop_receiving();
        if (client_.get() != nullptr) static_cast<void>(natsConnection_FlushTimeout(client_.get(), 1000));
        deliveries_.reset();
        jetstream_.reset();
        client_.close();
    }

    Result open() override {
        const BlockedSignals blocked;  // in the threads that the client starts
        const std::string folder = url_.state.empty() ? default_folder() : url_.state;
        try {
            handling_->journal.open(folder + "/" + url_.stream(own_.address) + ".handled");
        } catch (const std::system_error& error) {
            if (error.code().value() == EWOULDBLOCK) return VORN_BUS_ADDRESS_TAKEN;
            own_.log.line(error.what());
            return VORN_BUS_SYSTEM_ERROR;
        }
        if (!client_.open(url_)) return VORN_BUS_SYSTEM_ERROR;
        handling_->connection = client_.get();
        jsCtx* made = nullptr;
        natsStatus status = natsConnection_JetStream(&made, client_.get(), nullptr);
        jetstream_.reset(made);
        sender_.emplace(url_, own_, client_.get(), jetstream_.get());
        if (status != NATS_OK) return refused("JetStream", status, {});
        Result result = VORN_BUS_OK;
        const Deadline deadline = Clock::now() + kOpenTimeout;
        do {
            if (result != VORN_BUS_OK) std::this_thread::sleep_for(100ms);
            result = take_address();
        } while (result == VORN_BUS_ADDRESS_TAKEN && Clock::now() < deadline);
        if (result != VORN_BUS_OK) return result;
        answer_questions();
        fetcher_.emplace(url_.stream(own_.address), own_, jetstream_.get(), deliveries_.get(), handling_,
                         start_, catches_up_);
        return VORN_BUS_OK;
    }

    void stop_receiving() override {
        if (!fetcher_) return;
        fetcher_.reset();
        static_cast<void>(natsSubscription_Unsubscribe(deliveries_.get()));
        client_.end_subscriptions();  // they ask the bus, which is about to go
    }

    Result send(const Outgoing& batch, SendTimeout& timeout) override {
        return sender_->send(batch, timeout);
    }

    // What is accepted is stored.
    bool drain(Deadline /*deadline*/) override { return true; }
    std::uint64_t batches_on_their_way() override { return 0; }

    std::string endpoint() const override { return url_.endpoint_text(own_.address); }

  private:
    Result refused(const std::string& what, natsStatus status, jsErrCode code) const {
        own_.log.line(what, ": ", natsStatus_GetText(status),
                      code == jsErrCode{} ? "" : ", JetStream's error " + std::to_string(code));
        return VORN_BUS_SYSTEM_ERROR;
    }

    // Makes the stream and its consumer, or finds them as they should be, and subscribes.
    Result take_address() {
        const std::string stream = url_.stream(own_.address);
        const std::string subject = url_.batches(own_.address);
        const std::string deliveries = url_.deliveries(own_.address);
        const char* const subjects[] = {subject.c_str()};
        jsStreamConfig config = {};
        jsStreamConfig_Init(&config);
        if (is_taken(stream)) return VORN_BUS_ADDRESS_TAKEN;  // before the limits of its stream are changed

        const std::string limits = limits_text({own_.queue_batches, own_.queue_bytes, own_.batch_bytes});
        config.Name = stream.c_str();
        config.Description = limits.c_str();
        config.Subjects = const_cast<const char**>(subjects);
        config.SubjectsLen = 1;
        config.Retention = js_WorkQueuePolicy;
        config.MaxMsgSize = static_cast<std::int32_t>(own_.batch_bytes + Data::kBytes);
        config.Storage = js_FileStorage;
        config.Replicas = url_.replicas;
        jsErrCode code = {};
        jsStreamInfo* made = nullptr;
        natsStatus status = js_AddStream(&made, jetstream_.get(), &config, nullptr, &code);
        if (code == JSStreamNameExistErr)
            status = js_UpdateStream(&made, jetstream_.get(), &config, nullptr, &code);
        const StreamInfo stream_info(made);
        if (status != NATS_OK) return refused("stream " + stream, status, code);

        jsConsumerConfig consumer = {};
        jsConsumerConfig_Init(&consumer);
        consumer.Durable = kNatsConsumer;
        consumer.AckPolicy = js_AckExplicit;
        consumer.AckWait = kAckWait;
        consumer.MaxAckPending = kNatsMostUnacknowledged;
        consumer.DeliverSubject = deliveries.c_str();
        jsConsumerInfo* made_consumer = nullptr;
        status = js_AddConsumer(&made_consumer, jetstream_.get(), stream.c_str(), &consumer, nullptr, &code);
        const ConsumerInfo consumer_info(made_consumer);
        if (status != NATS_OK && code != JSConsumerNameExistErr && code != JSConsumerExistingActiveErr) {
            return refused("consumer of stream " + stream, status, code);
        }
        if (consumer_info == nullptr || consumer_info->PushBound) return VORN_BUS_ADDRESS_TAKEN;

        handling_->journal.begin(made->Created);
        const std::uint64_t finished = handling_->journal.finished();
        const std::uint64_t started = handling_->journal.started();
        start_.next = std::max(finished + 1, std::max<std::uint64_t>(made->State.FirstSeq, 1));
        start_.interrupted = started == start_.next && started > finished ? started : 0;
        start_.delivered_before = consumer_info->Delivered.Stream;
        handling_->handled = start_.next - 1;

        jsSubOptions options = {};
        jsSubOptions_Init(&options);
        options.Stream = stream.c_str();
        options.Consumer = kNatsConsumer;
        options.ManualAck = true;
        natsSubscription* subscription = nullptr;
        status = js_SubscribeSync(&subscription, jetstream_.get(), subject.c_str(), nullptr, &options, &code);
        if (status != NATS_OK) {
            // Bound between the two calls, or an error that the next try meets again.
            refused("subscription to stream " + stream, status, code);
            return VORN_BUS_ADDRESS_TAKEN;
        }
        deliveries_.reset(subscription);
        // From now on, not some time later when the server has noticed, others find the address taken.
        const Deadline noticed = Clock::now() + kOpenTimeout;
        while (!is_taken(stream) && Clock::now() < noticed) std::this_thread::sleep_for(5ms);
        return VORN_BUS_OK;
    }

    bool is_taken(const std::string& stream) { return has_receiver(jetstream_.get(), stream); }

    void answer_questions() {
        const auto answer = [](natsConnection* connection, natsSubscription*, natsMsg* question, void* self) {
            const NatsMessage owned(question);
            const Endpoint& own = static_cast<NatsTransport*>(self)->own_;
            vorn_bus_counters counters = {};
            own.read_counters(own.bus, counters);
            std::array<std::uint8_t, kCountersHeaderBytes + sizeof(CounterNumbers)> bytes;
            write_counters(bytes.data(), to_numbers(counters));
            const char* const to = natsMsg_GetReply(question);
            if (to != nullptr)
                static_cast<void>(natsConnection_Publish(connection, to, bytes.data(), bytes.size()));
        };
        client_.subscribe(url_.questions(own_.address), answer, this);
        static_cast<void>(natsConnection_FlushTimeout(client_.get(), 1000));  // the server knows of it
    }

    const NatsUrl url_;
    const Endpoint own_;
    std::shared_ptr<NatsHandling> handling_ = std::make_shared<NatsHandling>();
    NatsClient client_{own_.log, [this] { catches_up_ = true; }};
    JetStream jetstream_;
    std::optional<NatsSender> sender_;
    NatsSubscription deliveries_;

    NatsFetcher::Start start_ = {};
    std::atomic<bool> catches_up_ = false;
    std::optional<NatsFetcher> fetcher_;
};

Result make(const std::string& rest, bool tls, const Endpoint& endpoint, std::unique_ptr<Transport>& made) {
    auto url = read_nats_url(rest, tls);
    if (!url) return VORN_BUS_BAD_URL;
    made = std::make_unique<NatsTransport>(std::move(*url), endpoint);
    return VORN_BUS_OK;
}

}  // namespace

Result make_nats(const std::string& rest, const Endpoint& endpoint, std::unique_ptr<Transport>& made) {
    return make(rest, false, endpoint, made);
}
Result make_nats_tls(const std::string& rest, const Endpoint& endpoint, std::unique_ptr<Transport>& made) {
    return make(rest, true, endpoint, made);
}
}  // namespace vorn
