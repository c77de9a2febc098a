// SPDX-License-Identifier: Apache-2.0
// A connection to NATS: its URL, its objects, which end with their scope.
#ifndef VORN_NATS_CONNECTION_H
#define VORN_NATS_CONNECTION_H

#include <nats/nats.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vorn/support.h"

namespace vorn {

template <auto destroy>
struct Destroy {
    template <class T>
    void operator()(T* object) const {
        destroy(object);
    }
};

using NatsConnection = std::unique_ptr<natsConnection, Destroy<natsConnection_Destroy>>;
using NatsSubscription = std::unique_ptr<natsSubscription, Destroy<natsSubscription_Destroy>>;
using NatsMessage = std::unique_ptr<natsMsg, Destroy<natsMsg_Destroy>>;
using JetStream = std::unique_ptr<jsCtx, Destroy<jsCtx_Destroy>>;
using StreamInfo = std::unique_ptr<jsStreamInfo, Destroy<jsStreamInfo_Destroy>>;
using ConsumerInfo = std::unique_ptr<jsConsumerInfo, Destroy<jsConsumerInfo_Destroy>>;

// Subscriptions whose messages go to a callback, in threads of the client's. When they have ended, a callback
// may still run; wait returns when none does, nor will.
class LastCallbacks {
  public:
    void follow(natsSubscription* subscription) {
        running_.fetch_add(1);
        const auto over = [](void* self) {
            auto& running = static_cast<LastCallbacks*>(self)->running_;
            running.fetch_sub(1);
            running.notify_all();
        };
        if (natsSubscription_SetOnCompleteCB(subscription, over, this) != NATS_OK) running_.fetch_sub(1);
    }
    void wait() {
        for (int running = running_.load(); running != 0; running = running_.load()) running_.wait(running);
    }

  private:
    std::atomic<int> running_ = 0;
};

// nats://[USER:PASSWORD@]HOST:PORT[,...][?prefix=P&replicas=N&state=FOLDER]
struct NatsUrl {
    bool tls = false;
    std::vector<std::string> servers;
    std::string prefix = "vorn";  // of all names on the server
    int replicas = 1;             // of each stream
    std::string state;            // folder of the journals; empty: the usual one

    std::string stream(std::uint32_t address) const { return prefix + "-" + std::to_string(address); }
    std::string units(std::uint32_t address) const { return prefix + ".units." + std::to_string(address); }
    std::string all_units() const { return prefix + ".units.*"; }
    std::string deliveries(std::uint32_t address) const {
        return prefix + ".deliveries." + std::to_string(address);
    }
    std::string questions(std::uint32_t address) const { return prefix + ".ask." + std::to_string(address); }
};

// What the receiver of an address takes. It stands in the stream's description, where senders read it.
struct Limits {
    std::uint32_t units;  // in the queue
    std::uint32_t bytes;
    std::uint32_t unit_bytes;
};
std::string limits_text(const Limits& limits);
std::optional<Limits> read_limits(const char* text);

// `rest` is the URL behind its scheme; none: it is none.
std::optional<NatsUrl> read_nats_url(const std::string& rest, bool tls);

// What a host may give beside the URL, in its environment.
inline constexpr const char* kNatsCredentials = "VORN_NATS_CREDS";  // file of a user's JWT and seed
inline constexpr const char* kNatsToken = "VORN_NATS_TOKEN";
inline constexpr const char* kNatsAuthorities = "VORN_NATS_CA";  // files of PEM
inline constexpr const char* kNatsCertificate = "VORN_NATS_CERT";
inline constexpr const char* kNatsKey = "VORN_NATS_KEY";

struct NatsCallbacks {
    void* context = nullptr;
    natsConnectionHandler disconnected = nullptr;
    natsConnectionHandler reconnected = nullptr;
    natsConnectionHandler closed = nullptr;  // the last that is called
};

// Null: there is none; the log says why.
NatsConnection connect(const NatsUrl& url, const NatsCallbacks& callbacks, Log& log);

}  // namespace vorn

#endif
