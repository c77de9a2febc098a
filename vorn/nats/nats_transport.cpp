// SPDX-License-Identifier: Apache-2.0
// nats:// by JetStream. Each address has a stream, which keeps what is sent to it until it is handled; it is
// made when the address is opened for the first time.
//
// A send is over when the stream has stored the batch; until then it is repeated. The receiver takes batches
// strictly in the stream's order: what the server delivers twice is left out, and what it does not deliver is
// fetched. What was stored twice is known by its session and number, and left out too; the server's own list
// of ids would forget those of messages that are gone when it starts again, and then its replicas differ. A
// journal tells the next process what was handled.
#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "vorn/core/transport.h"
#include "vorn/nats/nats_connection.h"
#include "vorn/nats/nats_journal.h"
#include "vorn/nats/nats_sender.h"

namespace vorn {
namespace {

using namespace std::chrono_literals;

constexpr const char* kConsumer = "receiver";
constexpr std::int64_t kNanoseconds = 1'000'000'000;

// The receiver looks for what is forgotten by itself; so this may be longer than a handler and its queue
// take.
constexpr std::int64_t kAckWait = 60 * kNanoseconds;
constexpr std::int64_t kMostUnacknowledged = 512;

// After a kill, until the server has seen that the connection is gone.
constexpr auto kOpenTimeout = 1500ms;

// Without a delivery, after which the receiver looks for itself what the stream holds.
constexpr auto kQuiet = 1s;

// How long a question to the stream may take, and so how long closing may wait for one.
jsOptions wait_options() {
    jsOptions options = {};
    jsOptions_Init(&options);
    options.Wait = 1000;
    return options;
}

std::chrono::milliseconds left_until(Deadline deadline) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
}

// Shared by a transport and its deliveries.
struct Handling {
    natsConnection* connection = nullptr;
    Journal journal;
    std::atomic<std::uint64_t> handled = 0;
};

class NatsDelivery final : public Delivery {
  public:
    // Without batches, it only moves the journal and the server on when its turn has come.
    NatsDelivery(NatsMessage message, std::uint64_t number, std::shared_ptr<Handling> handling)
        : message_(std::move(message)), number_(number), handling_(std::move(handling)) {}

    Bytes packet() const {
        return {reinterpret_cast<const std::uint8_t*>(natsMsg_GetData(message_.get())),
                static_cast<std::size_t>(natsMsg_GetDataLength(message_.get()))};
    }
    void hold_batch(const Data& data) {
        bytes = packet().subspan(Data::kBytes);
        batches = 1;
        data_ = data;
    }

    // Not handled: the server shall deliver it again, and at once.
    ~NatsDelivery() override {
        if (!finished_) answer("-NAK");
    }

    void batch_begins() override { handling_->journal.start(number_); }
    void finished() override {
        finished_ = true;
        if (data_) handling_->journal.remember({data_->session, data_->first, number_});
        handling_->journal.finish(number_);
        handling_->handled.store(number_, std::memory_order_release);
        answer("+ACK");
    }

  private:
    // By its subject, so that the subscription may have ended. Lost, the server delivers again, and hears it
    // then.
    void answer(const char* word) const {
        const char* const to = natsMsg_GetReply(message_.get());
        if (to != nullptr) static_cast<void>(natsConnection_PublishString(handling_->connection, to, word));
    }

    NatsMessage message_;
    std::uint64_t number_;
    std::shared_ptr<Handling> handling_;
    std::optional<Data> data_;
    bool finished_ = false;
};

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
        const std::string folder = url_.state.empty() ? usual_folder() : url_.state;
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
        if (status != NATS_OK) return trouble("JetStream", status, {});
        Result result = VORN_BUS_OK;
        const Deadline deadline = Clock::now() + kOpenTimeout;
        do {
            if (result != VORN_BUS_OK) std::this_thread::sleep_for(100ms);
            result = take_address();
        } while (result == VORN_BUS_ADDRESS_TAKEN && Clock::now() < deadline);
        if (result != VORN_BUS_OK) return result;
        answer_questions();
        fetcher_ = start_thread([this] { fetch(); });
        return VORN_BUS_OK;
    }

    void stop_receiving() override {
        if (!fetcher_.joinable()) return;
        ends_ = true;
        fetcher_.join();
        static_cast<void>(natsSubscription_Unsubscribe(deliveries_.get()));
        client_.end_subscriptions();  // they ask the bus, which is about to go
    }

    Result send(const Outgoing& batch, SendTimeout& timeout) override {
        return sender_->send(batch, timeout);
    }

    // What is accepted is stored.
    bool drain(Deadline /*deadline*/) override { return true; }
    std::uint64_t batches_on_their_way() override { return 0; }

    std::string place() const override {
        return "stream " + url_.stream(own_.address) + ", subject " + url_.batches(own_.address);
    }

  private:
    Result trouble(const std::string& what, natsStatus status, jsErrCode code) const {
        own_.log.line(
            what + ": " + natsStatus_GetText(status) +
            (code == jsErrCode{} ? "" : ", JetStream's error " + std::to_string(static_cast<int>(code))));
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
        if (status != NATS_OK) return trouble("stream " + stream, status, code);

        jsConsumerConfig consumer = {};
        jsConsumerConfig_Init(&consumer);
        consumer.Durable = kConsumer;
        consumer.AckPolicy = js_AckExplicit;
        consumer.AckWait = kAckWait;
        consumer.MaxAckPending = kMostUnacknowledged;
        consumer.DeliverSubject = deliveries.c_str();
        jsConsumerInfo* made_consumer = nullptr;
        status = js_AddConsumer(&made_consumer, jetstream_.get(), stream.c_str(), &consumer, nullptr, &code);
        const ConsumerInfo consumer_info(made_consumer);
        if (status != NATS_OK && code != JSConsumerNameExistErr && code != JSConsumerExistingActiveErr) {
            return trouble("consumer of stream " + stream, status, code);
        }
        if (consumer_info == nullptr || consumer_info->PushBound) return VORN_BUS_ADDRESS_TAKEN;

        handling_->journal.begin(made->Created);
        next_ = std::max(handling_->journal.finished() + 1, std::max<std::uint64_t>(made->State.FirstSeq, 1));
        const std::uint64_t started = handling_->journal.started();
        interrupted_ = started == next_ && started > handling_->journal.finished() ? started : 0;
        handling_->handled = next_ - 1;
        for (const Journal::Session& session : handling_->journal.sessions()) {
            taken_[session.name] = {session.last, session.number};
        }

        jsSubOptions options = {};
        jsSubOptions_Init(&options);
        options.Stream = stream.c_str();
        options.Consumer = kConsumer;
        options.ManualAck = true;
        natsSubscription* subscription = nullptr;
        status = js_SubscribeSync(&subscription, jetstream_.get(), subject.c_str(), nullptr, &options, &code);
        if (status != NATS_OK) {
            // Bound between the two calls, or trouble, which then shows itself again.
            trouble("subscription to stream " + stream, status, code);
            return VORN_BUS_ADDRESS_TAKEN;
        }
        deliveries_.reset(subscription);
        delivered_before_ = consumer_info->Delivered.Stream;
        // From now on, not some time later when the server has noticed, others find the address taken.
        const Deadline noticed = Clock::now() + kOpenTimeout;
        while (!is_taken(stream) && Clock::now() < noticed) std::this_thread::sleep_for(5ms);
        return VORN_BUS_OK;
    }

    bool is_taken(const std::string& stream) {
        jsConsumerInfo* found = nullptr;
        jsOptions timeout = wait_options();
        const natsStatus status =
            js_GetConsumerInfo(&found, jetstream_.get(), stream.c_str(), kConsumer, &timeout, nullptr);
        const ConsumerInfo info(found);
        return status == NATS_OK && info->PushBound;
    }

    void answer_questions() {
        const auto answer = [](natsConnection* connection, natsSubscription*, natsMsg* question, void* self) {
            const NatsMessage owned(question);
            const Endpoint& own = static_cast<NatsTransport*>(self)->own_;
            vorn_bus_counters counters = {};
            own.read_counters(own.bus, counters);
            std::array<std::uint8_t, kCountersHeaderBytes + sizeof counters> bytes;
            write_counters(bytes.data(), std::bit_cast<std::array<std::uint64_t, kCounterNumbers>>(counters));
            const char* const to = natsMsg_GetReply(question);
            if (to != nullptr)
                static_cast<void>(natsConnection_Publish(connection, to, bytes.data(), bytes.size()));
        };
        client_.subscribe(url_.questions(own_.address), answer, this);
        static_cast<void>(natsConnection_FlushTimeout(client_.get(), 1000));  // the server knows of it
    }

    // ---- the fetching thread ----------------------------------------------------------------------

    void fetch() {
        while (!ends_ && !fetch_until(delivered_before_ + 1)) std::this_thread::sleep_for(20ms);
        auto quiet_since = Clock::now();
        while (!ends_) {
            if (catches_up_.exchange(false) && !catch_up()) catches_up_ = true;
            if (Clock::now() - quiet_since > kQuiet) {
                look_for_the_forgotten();
                quiet_since = Clock::now();
            }
            natsMsg* arrived = nullptr;
            const natsStatus status = natsSubscription_NextMsg(&arrived, deliveries_.get(), 100);
            if (status == NATS_OK) {
                quiet_since = Clock::now();
                take(NatsMessage(arrived));
            } else if (status != NATS_TIMEOUT) {
                std::this_thread::sleep_for(20ms);
            }
        }
    }

    // What the server had delivered to a process or a connection that is gone comes again only after some
    // seconds.
    bool catch_up() {
        const std::string stream = url_.stream(own_.address);
        jsConsumerInfo* made = nullptr;
        jsErrCode code = {};
        jsOptions timeout = wait_options();
        if (js_GetConsumerInfo(&made, jetstream_.get(), stream.c_str(), kConsumer, &timeout, &code) !=
            NATS_OK)
            return false;
        const ConsumerInfo info(made);
        return fetch_until(info->Delivered.Stream + 1);
    }

    // A server that was killed may know a delivery or an acknowledgement that its stream does not: what is
    // stored would never come, and what is handled would fill the queue for ever.
    void look_for_the_forgotten() {
        const std::string stream = url_.stream(own_.address);
        jsStreamInfo* made = nullptr;
        jsOptions options = wait_options();
        if (js_GetStreamInfo(&made, jetstream_.get(), stream.c_str(), &options, nullptr) != NATS_OK) return;
        const StreamInfo info(made);
        if (info->State.Msgs == 0 || !fetch_until(info->State.LastSeq + 1)) return;
        const std::uint64_t handled = handling_->handled.load(std::memory_order_acquire);
        if (info->State.FirstSeq > handled) return;
        options.Stream.Purge.Sequence = handled + 1;
        static_cast<void>(js_PurgeStream(jetstream_.get(), stream.c_str(), &options, nullptr));
    }

    void take(NatsMessage message) {
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
                    natsConnection_PublishString(client_.get(), natsMsg_GetReply(message.get()), "+ACK"));
            }
            return;
        }
        if (!fetch_until(number)) return;
        if (number == next_) return put(std::move(message));
        count(own_.counters.damaged);
        own_.log.line_about_outside("a delivery of a batch that the stream does not have was left out");
    }

    // Takes from the stream what was not delivered, up to but without `number`. False: not now.
    bool fetch_until(std::uint64_t number) {
        const std::string stream = url_.stream(own_.address);
        while (next_ < number) {
            if (ends_) return false;
            natsMsg* fetched = nullptr;
            jsErrCode code = {};
            const natsStatus status =
                js_GetMsg(&fetched, jetstream_.get(), stream.c_str(), next_, nullptr, &code);
            if (status == NATS_OK) {
                put(NatsMessage(fetched));
            } else if (status == NATS_NOT_FOUND || code == JSNoMessageFoundErr) {
                if (!pass_over_the_gone(number)) return false;
            } else {
                std::this_thread::sleep_for(20ms);
                if (!is_connected(client_.get())) return false;
            }
        }
        return true;
    }

    // `number` becomes that behind the stream's last, if it is above that: a server that was killed may
    // remember deliveries of what its stream does not have.
    bool pass_over_the_gone(std::uint64_t& number) {
        const std::string stream = url_.stream(own_.address);
        jsOptions options = wait_options();
        jsStreamInfo* made = nullptr;
        if (js_GetStreamInfo(&made, jetstream_.get(), stream.c_str(), &options, nullptr) != NATS_OK)
            return false;
        const StreamInfo info(made);
        number = std::min(number, info->State.LastSeq + 1);
        if (next_ >= number) return true;
        const std::uint64_t first = std::clamp(info->State.FirstSeq, next_ + 1, number);
        count(own_.counters.missed_batches, first - next_);
        own_.log.line_about_outside(std::to_string(first - next_) + " batches from " + std::to_string(next_) +
                                    " on are gone from the server");
        next_ = first;
        return true;
    }

    void put(NatsMessage message) {
        // Of the largest queue, no more are in memory than the server delivers ahead.
        while (!ends_ && own_.inbox.batches() >= kMostUnacknowledged) std::this_thread::sleep_for(1ms);
        auto delivery = std::make_unique<NatsDelivery>(std::move(message), next_, handling_);
        const auto data = read_data(delivery->packet());
        if (!data || data->count != 1) {
            count(own_.counters.damaged);
            own_.log.line_about_outside("something arrived damaged, and was left out");
        } else if (is_known(*data)) {
            count(own_.counters.redelivered_batches);
        } else {
            delivery->hold_batch(*data);
            delivery->repeated = next_ == interrupted_;
        }
        ++next_;
        own_.inbox.put(std::move(delivery));
    }

    // Whether the batch was taken before; from now on it was.
    bool is_known(const Data& data) {
        if (taken_.size() >= 2 * Journal::kSessions) forget_the_silent();
        Taken& taken = taken_[data.session];
        if (data.first <= taken.last) return true;
        taken = {data.first, next_};
        return false;
    }

    void forget_the_silent() {
        std::vector<std::uint64_t> numbers;
        for (const auto& [session, taken] : taken_) numbers.push_back(taken.number);
        const auto middle = numbers.begin() + static_cast<std::ptrdiff_t>(numbers.size() / 2);
        std::nth_element(numbers.begin(), middle, numbers.end());
        std::erase_if(taken_, [oldest = *middle](const auto& entry) { return entry.second.number < oldest; });
    }

    const NatsUrl url_;
    const Endpoint own_;
    std::shared_ptr<Handling> handling_ = std::make_shared<Handling>();
    NatsClient client_{own_.log, [this] { catches_up_ = true; }};
    JetStream jetstream_;
    std::optional<NatsSender> sender_;
    NatsSubscription deliveries_;

    std::uint64_t next_ = 1;              // number of the batch that is taken next
    std::uint64_t interrupted_ = 0;       // of one that a killed process may have handled
    std::uint64_t delivered_before_ = 0;  // to processes before this one
    struct Taken {
        std::uint64_t last = 0;    // the session's number of its last batch
        std::uint64_t number = 0;  // the stream's number of it
    };
    std::unordered_map<std::uint64_t, Taken> taken_;  // by session
    std::atomic<bool> catches_up_ = false;
    std::atomic<bool> ends_ = false;
    std::thread fetcher_;
};

Result make(const std::string& rest, bool tls, const Endpoint& endpoint, std::unique_ptr<Transport>& made) {
    auto url = read_nats_url(rest, tls);
    if (!url) return VORN_BUS_BAD_URL;
    made = std::make_unique<NatsTransport>(std::move(*url), endpoint);
    return VORN_BUS_OK;
}

Result ask(const std::string& rest, bool tls, std::uint32_t address, Deadline deadline, Log& log,
           vorn_bus_counters& counters) {
    const auto url = read_nats_url(rest, tls);
    if (!url) return VORN_BUS_BAD_URL;
    const NatsConnection connection = connect(*url, log);
    if (connection == nullptr) return VORN_BUS_SYSTEM_ERROR;
    std::array<std::uint8_t, kPreambleBytes> question;
    put_preamble(question.data(), Kind::ask);
    natsMsg* answered = nullptr;
    const std::int64_t timeout = std::max<std::int64_t>(left_until(deadline).count(), 1);
    if (natsConnection_Request(&answered, connection.get(), url->questions(address).c_str(), question.data(),
                               static_cast<int>(question.size()), timeout) != NATS_OK) {
        return VORN_BUS_NO_PEER;
    }
    const NatsMessage answer(answered);
    std::array<std::uint64_t, kCounterNumbers> values = {};
    const Bytes bytes(reinterpret_cast<const std::uint8_t*>(natsMsg_GetData(answered)),
                      static_cast<std::size_t>(natsMsg_GetDataLength(answered)));
    if (!read_counters(bytes, values)) return VORN_BUS_SYSTEM_ERROR;
    counters = std::bit_cast<vorn_bus_counters>(values);
    return VORN_BUS_OK;
}

}  // namespace

Result make_nats(const std::string& rest, const Endpoint& endpoint, std::unique_ptr<Transport>& made) {
    return make(rest, false, endpoint, made);
}
Result make_nats_tls(const std::string& rest, const Endpoint& endpoint, std::unique_ptr<Transport>& made) {
    return make(rest, true, endpoint, made);
}
Result ask_nats(const std::string& rest, std::uint32_t address, Deadline deadline, Log& log,
                vorn_bus_counters& counters) {
    return ask(rest, false, address, deadline, log, counters);
}
Result ask_nats_tls(const std::string& rest, std::uint32_t address, Deadline deadline, Log& log,
                    vorn_bus_counters& counters) {
    return ask(rest, true, address, deadline, log, counters);
}

}  // namespace vorn
