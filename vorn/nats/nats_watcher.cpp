// SPDX-License-Identifier: Apache-2.0
// Watching nats:. Whoever subscribes to the batches' subjects sees what is published there, without a part in
// the streams.
#include <atomic>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "vorn/core/transport.h"
#include "vorn/nats/nats_connection.h"
#include "vorn/nats/nats_delivery.h"
#include "vorn/nats/nats_errors.h"
#include "vorn/nats/nats_seen.h"

namespace vorn {
namespace {

class NatsCopies final : public Copies {
  public:
    // Of the batches in a packet; of what is no packet, all bytes, which are no batch either.
    NatsCopies(NatsMessage message, const std::optional<NatsPacket>& packet) : message_(std::move(message)) {
        bytes = bytes_of(message_).subspan(packet ? NatsPacket::kBytes : 0);
        batches = packet ? packet->count : 1;
        time = nanoseconds_now();
    }

  private:
    NatsMessage message_;
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
            listeners_.push_back(std::make_unique<NatsListener>());
            if (!listeners_.back()->begin(client_.get(), subject, on_message, this, own_.log))
                return VORN_BUS_SYSTEM_ERROR;
            // The queue is the limit, and counts what it drops.
            static_cast<void>(natsSubscription_SetPendingLimits(listeners_.back()->get(), -1, -1));
        }
        // The server knows of the subscriptions when this returns.
        if (const natsStatus status = natsConnection_FlushTimeout(client_.get(), 2000); status != NATS_OK) {
            own_.log.error("the server does not answer: ", nats_reason(status, {}));
            return VORN_BUS_SYSTEM_ERROR;
        }
        return VORN_BUS_OK;
    }

    std::uint64_t receivers() override { return is_connected(client_.get()) ? 1 : 0; }

  private:
    static NatsWatcher& of(void* self) { return *static_cast<NatsWatcher*>(self); }

    static void on_message(natsConnection* /*connection*/, natsSubscription* /*subscription*/,
                           natsMsg* message, void* self) {
        of(self).take(NatsMessage(message));
    }
    void take(NatsMessage message) {
        const auto packet = read_nats_packet(bytes_of(message));
        try {
            if (packet) {
                const std::lock_guard locked(lock_);
                if (!seen_.add(*packet)) return;
                if (bytes_of(message).size() == NatsPacket::kBytes) return;  // a void
            }
            own_.queue.put(std::make_unique<NatsCopies>(std::move(message), packet));
        } catch (const std::bad_alloc&) {
            count(own_.counters.lost_batches, packet ? packet->count : 1);
        }
    }

    const NatsUrl url_;
    const WatchEndpoint own_;
    std::mutex lock_;
    NatsSeen seen_;
    // The last members: their callbacks, which use the others, end with them.
    NatsClient client_{own_.log, [this] { count(own_.counters.interruptions); }};
    std::vector<std::unique_ptr<NatsListener>> listeners_;
};

}  // namespace

Result watch_nats(const BusUrl& url, const WatchEndpoint& endpoint, std::unique_ptr<Watcher>& made) {
    made = std::make_unique<NatsWatcher>(NatsUrl(url), endpoint);
    return VORN_BUS_OK;
}

}  // namespace vorn
