// SPDX-License-Identifier: Apache-2.0
// Watching nats:. Whoever subscribes to the units' subjects sees what is published there, without a part in
// the streams.
#include <atomic>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "vorn/nats_connection.h"
#include "vorn/transport.h"

namespace vorn {
namespace {

class NatsCopies final : public Copies {
  public:
    explicit NatsCopies(NatsMessage message) : message_(std::move(message)) {
        bytes = Bytes(reinterpret_cast<const std::uint8_t*>(natsMsg_GetData(message_.get())),
                      static_cast<std::size_t>(natsMsg_GetDataLength(message_.get())));
        units = 1;
        time = nanoseconds_now();
    }

  private:
    NatsMessage message_;
};

// The ids that were seen last: a send that heard nothing from the stream is repeated under its id.
class SeenIds {
  public:
    // False: it was seen before.
    bool add(const std::string& id) {
        if (!seen_.insert(id).second) return false;
        in_order_.push_back(id);
        if (in_order_.size() > kMost) {
            seen_.erase(in_order_.front());
            in_order_.pop_front();
        }
        return true;
    }

  private:
    static constexpr std::size_t kMost = 65536;
    std::unordered_set<std::string> seen_;
    std::deque<std::string> in_order_;
};

class NatsWatcher final : public Watcher {
  public:
    NatsWatcher(NatsUrl url, WatchEndpoint own) : url_(std::move(url)), own_(std::move(own)) {}
    ~NatsWatcher() override {
        if (connection_ == nullptr) return;
        closes_ = true;
        natsConnection_Close(connection_.get());
        closed_.wait(false);
        subscriptions_.clear();
    }

    Result open() override {
        connection_ = connect(url_, {this, on_disconnected, on_reconnected, on_closed}, own_.log);
        if (connection_ == nullptr) return VORN_BUS_TROUBLE;
        std::vector<std::string> subjects;
        for (const std::uint32_t address : own_.addresses) subjects.push_back(url_.units(address));
        if (subjects.empty()) subjects.push_back(url_.all_units());
        for (const std::string& subject : subjects) {
            natsSubscription* made = nullptr;
            const natsStatus status =
                natsConnection_Subscribe(&made, connection_.get(), subject.c_str(), on_message, this);
            if (status != NATS_OK) {
                own_.log.line("subscription to " + subject + ": " + natsStatus_GetText(status));
                return VORN_BUS_TROUBLE;
            }
            subscriptions_.emplace_back(made);
            // The queue is the limit, and counts what it drops.
            static_cast<void>(natsSubscription_SetPendingLimits(made, -1, -1));
        }
        // The server knows of the subscriptions when this returns.
        if (const natsStatus status = natsConnection_FlushTimeout(connection_.get(), 2000);
            status != NATS_OK) {
            own_.log.line(std::string("the server does not answer: ") + natsStatus_GetText(status));
            return VORN_BUS_TROUBLE;
        }
        return VORN_BUS_OK;
    }

    std::uint64_t receivers() override {
        return natsConnection_Status(connection_.get()) == NATS_CONN_STATUS_CONNECTED ? 1 : 0;
    }

  private:
    static NatsWatcher& of(void* self) { return *static_cast<NatsWatcher*>(self); }

    static void on_message(natsConnection* /*connection*/, natsSubscription* /*subscription*/,
                           natsMsg* message, void* self) {
        of(self).take(NatsMessage(message));
    }
    static void on_disconnected(natsConnection* /*connection*/, void* self) {
        if (!of(self).closes_) of(self).own_.log.line("the connection to the server is gone");
    }
    static void on_reconnected(natsConnection* /*connection*/, void* self) {
        of(self).own_.log.line("the connection to the server stands again");
        count(of(self).own_.counters.interruptions);
    }
    static void on_closed(natsConnection* /*connection*/, void* self) {
        of(self).closed_ = true;
        of(self).closed_.notify_all();
    }

    void take(NatsMessage message) {
        const char* id = nullptr;
        if (natsMsgHeader_Get(message.get(), "Nats-Msg-Id", &id) == NATS_OK && id != nullptr) {
            const std::lock_guard locked(lock_);
            if (!seen_.add(id)) return;
        }
        own_.queue.put(std::make_unique<NatsCopies>(std::move(message)));
    }

    const NatsUrl url_;
    const WatchEndpoint own_;
    NatsConnection connection_;
    std::vector<NatsSubscription> subscriptions_;
    std::mutex lock_;
    SeenIds seen_;
    std::atomic<bool> closes_ = false;
    std::atomic<bool> closed_ = false;
};

Result make(const std::string& rest, bool tls, const WatchEndpoint& endpoint,
            std::unique_ptr<Watcher>& made) {
    auto url = read_nats_url(rest, tls);
    if (!url) return VORN_BUS_BAD_URL;
    made = std::make_unique<NatsWatcher>(std::move(*url), endpoint);
    return VORN_BUS_OK;
}

}  // namespace

Result watch_nats(const std::string& rest, const WatchEndpoint& endpoint, std::unique_ptr<Watcher>& made) {
    return make(rest, false, endpoint, made);
}
Result watch_nats_tls(const std::string& rest, const WatchEndpoint& endpoint,
                      std::unique_ptr<Watcher>& made) {
    return make(rest, true, endpoint, made);
}

}  // namespace vorn
