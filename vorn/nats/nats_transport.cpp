// SPDX-License-Identifier: Apache-2.0
// nats:// by JetStream. Each address has a stream, which keeps what is sent to it until it is handled; it is
// made when the address is opened for the first time.
//
// What is accepted is published until the stream has stored it. The server's own list of ids would forget
// those of messages that are gone when it starts again, and then its replicas differ; so receivers recognise
// by session and number what was stored twice. A journal keeps for the next process what was handled.
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
#include "vorn/nats/nats_address.h"
#include "vorn/nats/nats_connection.h"
#include "vorn/nats/nats_delivery.h"
#include "vorn/nats/nats_errors.h"
#include "vorn/nats/nats_fetcher.h"
#include "vorn/nats/nats_query.h"
#include "vorn/nats/nats_sender.h"

namespace vorn {
namespace {

using namespace std::chrono_literals;

// After a kill, until the server has seen that the connection is gone.
constexpr auto kOpenTimeout = 1500ms;

class NatsTransport final : public Transport {
  public:
    NatsTransport(NatsUrl url, const Endpoint& own) : url_(std::move(url)), own_(own) {}

    ~NatsTransport() override {
        stop_receiving();
        if (client_.get() != nullptr) static_cast<void>(natsConnection_FlushTimeout(client_.get(), 1000));
        sender_.end();
        address_.reset();
        jetstream_.reset();
        client_.close();
    }

    Result open() override {
        const BlockedSignals blocked;  // in the threads that the client starts
        if (!own_.send_only) {
            if (const Result result = open_journal(); result != VORN_BUS_OK) return result;
        }
        const Deadline deadline = within_milliseconds(own_.open_timeout_ms);
        if (!client_.open(url_, deadline)) return VORN_BUS_SYSTEM_ERROR;
        handling_->connection = client_.get();
        jsCtx* made = nullptr;
        const natsStatus status = natsConnection_JetStream(&made, client_.get(), nullptr);
        jetstream_.reset(made);
        if (status != NATS_OK || !sender_.open(client_.get(), jetstream_.get())) {
            own_.log.error("the client of NATS cannot begin: ", nats_reason(status, {}));
            return VORN_BUS_SYSTEM_ERROR;
        }
        return own_.send_only ? VORN_BUS_OK : receive(deadline);
    }

    void stop_receiving() override {
        if (!fetcher_) return;
        fetcher_.reset();
        address_->end_deliveries();
        questions_.end();  // they ask the bus, which is about to go
    }

    Result send(const Outgoing& batch, SendTimeout& timeout) override { return sender_.send(batch, timeout); }
    bool drain(Deadline deadline) override { return sender_.drain(deadline); }
    std::uint64_t batches_on_their_way() override { return sender_.batches_on_their_way(); }

    std::string endpoint() const override {
        return own_.send_only ? "none: sends only" : url_.endpoint_text(own_.address);
    }

  private:
    Result open_journal() {
        const std::string folder = url_.state.empty() ? default_folder() : url_.state;
        try {
            handling_->journal.open(folder + "/" + url_.stream(own_.address) + ".handled");
        } catch (const std::system_error& error) {
            if (error.code().value() == EWOULDBLOCK) return VORN_BUS_ADDRESS_TAKEN;
            own_.log.error(error.what());
            return VORN_BUS_SYSTEM_ERROR;
        }
        return VORN_BUS_OK;
    }

    Result receive(Deadline deadline) {
        address_.emplace(url_, own_, client_.get(), jetstream_.get());
        const Deadline free = std::max(deadline, Clock::now() + kOpenTimeout);
        const auto tries_again = [&](Result result) {
            if (result == VORN_BUS_ADDRESS_TAKEN) return Clock::now() < free;
            return result == VORN_BUS_SYSTEM_ERROR && address_->may_pass_soon() && Clock::now() < deadline;
        };
        Result result = address_->take(*handling_);
        while (tries_again(result)) {
            std::this_thread::sleep_for(100ms);
            result = address_->take(*handling_);
        }
        if (result == VORN_BUS_SYSTEM_ERROR) own_.log.error(address_->fault());
        if (result != VORN_BUS_OK) return result;
        answer_questions();
        fetcher_.emplace(*address_, own_, jetstream_.get(), handling_, catches_up_);
        return VORN_BUS_OK;
    }

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
        questions_.begin(client_.get(), url_.questions(own_.address), answer, this, own_.log);
        static_cast<void>(natsConnection_FlushTimeout(client_.get(), 1000));  // the server knows of it
    }

    void connected_again() {
        catches_up_ = true;
        sender_.connected_again();
    }

    const NatsUrl url_;
    const Endpoint own_;
    std::shared_ptr<NatsHandling> handling_ = std::make_shared<NatsHandling>();
    std::atomic<bool> catches_up_ = false;
    NatsSender sender_{url_, own_};
    NatsClient client_{own_.log, [this] { connected_again(); }};
    JetStream jetstream_;
    std::optional<NatsAddress> address_;
    NatsListener questions_;
    std::optional<NatsFetcher> fetcher_;
};

Result make_nats(const BusUrl& url, const Endpoint& endpoint, std::unique_ptr<Transport>& made) {
    made = std::make_unique<NatsTransport>(NatsUrl(url), endpoint);
    return VORN_BUS_OK;
}

std::string fault_of(const BusUrl& given) {
    NatsUrl url;
    return read_nats_url(given, url);
}

}  // namespace

const TransportKind kNats = {make_nats, ask_nats, watch_nats, list_nats, remove_nats, fault_of};

}  // namespace vorn
