// SPDX-License-Identifier: Apache-2.0
// Watching nats:. Whoever subscribes to the batches' subjects sees what is published there, without a part in
// the streams.
#include <atomic>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "vorn/core/transport.h"
#include "vorn/nats/nats_connection.h"

namespace vorn {
namespace {

class NatsCopies final : public Copies {
  public:
    // Of the batch in a packet; of what is no packet, all bytes, which are no batch either.
    NatsCopies(NatsMessage message, bool is_packet) : message_(std::move(message)) {
        bytes = bytes_of(message_).subspan(is_packet ? Data::kBytes : 0);
        batches = 1;
        time = nanoseconds_now();
    }

    static Bytes bytes_of(const NatsMessage& message) {
        return {reinterpret_cast<const std::uint8_t*>(natsMsg_GetData(message.get())),
                static_cast<std::size_t>(natsMsg_GetDataLength(message.get()))};
    }

  private:
    NatsMessage message_;
};

// A send that heard nothing from the stream is repeated under its number.
class SeenBatches {
  public:
    // False: it was seen before.
    bool add(const Data& data) {
        const auto [found, is_new] = last_.try_emplace(data.session, 0);
        if (data.first <= found->second) return false;
        found->second = data.first;
        if (!is_new) return true;
        in_order_.push_back(data.session);
        if (in_order_.size() > kMost) {
            last_.erase(in_order_.front());
            in_order_.pop_front();
        }
        return true;
    }

  private:
    static constexpr std::size_t kMost = 65536;
    std::unordered_map<std::uint64_t, std::uint64_t> last_;
    std::deque<std::uint64_t> in_order_;
};

class NatsWatcher final : public Watcher {
  public:
    NatsWatcher(NatsUrl url, WatchEndpoint own) : url_(std::move(url)), own_(std::move(own)) {}

    Result open() override {
        const BlockedSignals blocked;  // in the threads that the client starts
        if (!client_.open(url_)) return VORN_BUS_SYSTEM_ERROR;
        std::vector<std::string> subjects;
        for (const std::uint32_t address : own_.addresses) subjects.push_back(url_.batches(address));
        if (subjects.empty()) subjects.push_back(url_.all_batches());
        for (const std::string& subject : subjects) {
            natsSubscription* const made = client_.subscribe(subject, on_message, this);
            if (made == nullptr) return VORN_BUS_SYSTEM_ERROR;
            // The queue is the limit, and counts what it drops.
            static_cast<void>(natsSubscription_SetPendingLimits(made, -1, -1));
        }
        // The server knows of the subscriptions when this returns.
        if (const natsStatus status = natsConnection_FlushTimeout(client_.get(), 2000); status != NATS_OK) {
            own_.log.line("the server does not answer: ", natsStatus_GetText(status));
            return VORN_BUS_SYSTEM_ERROR;
        }
        return VORN_BUS_OK;
    }

    std::uint64_t receivers() override { return is_connected(client_.get()) ? 1 : 0; }

  private:
    static NatsWatcher& of(void* self) { return *static_cast<NatsWatcher*>(self); }

    static void on_message(natsConnection* /*connection*/, natsSubscription* /*subscription*/,
                           natsMsg* message, void* self) {
        NatsMessage taken(message);
        try {
            of(self).take(std::move(taken));
        } catch (const std::exception&) {  // out of memory
            count(of(self).own_.counters.lost_batches);
        }
    }
    void take(NatsMessage message) {
        const auto data = read_data(NatsCopies::bytes_of(message));
        const bool is_packet = data && data->count == 1;
        if (is_packet) {
            const std::lock_guard locked(lock_);
            if (!seen_.add(*data)) return;
        }
        own_.queue.put(std::make_unique<NatsCopies>(std::move(message), is_packet));
    }

    const NatsUrl url_;
    const WatchEndpoint own_;
    std::mutex lock_;
    SeenBatches seen_;
    // The last member: its callbacks, which use the others, end with it.
    NatsClient client_{own_.log, [this] { count(own_.counters.interruptions); }};
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
