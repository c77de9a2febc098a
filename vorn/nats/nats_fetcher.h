// SPDX-License-Identifier: Apache-2.0
// The thread that takes batches from a stream, strictly in the stream's order.
//
// What the server delivers twice is left out, and what it does not deliver is fetched. What was stored twice
// is recognised by its session and number, and left out too.
#ifndef VORN_NATS_FETCHER_H
#define VORN_NATS_FETCHER_H

#include <nats/nats.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <unordered_map>

#include "vorn/core/transport.h"
#include "vorn/nats/nats_connection.h"

namespace vorn {

struct NatsHandling;

inline constexpr const char* kNatsConsumer = "receiver";
inline constexpr std::int64_t kNatsMostUnacknowledged = 512;

// How long a question to the stream may take, and so how long closing may wait for one.
jsOptions short_wait();

class NatsFetcher {
  public:
    struct Start {
        std::uint64_t next;              // number of the batch that is taken next
        std::uint64_t interrupted;       // of one that a killed process may have handled; 0: none
        std::uint64_t delivered_before;  // to processes before this one
    };

    // Refers to what it is given, and runs until it is destroyed. `catches_up` is set from outside when the
    // connection was interrupted.
    NatsFetcher(std::string stream, const Endpoint& own, jsCtx* jetstream, natsSubscription* deliveries,
                std::shared_ptr<NatsHandling> handling, const Start& start, std::atomic<bool>& catches_up);
    ~NatsFetcher();
    NatsFetcher(const NatsFetcher&) = delete;
    NatsFetcher& operator=(const NatsFetcher&) = delete;

  private:
    struct Taken {
        std::uint64_t last = 0;    // the session's number of its last batch
        std::uint64_t number = 0;  // the stream's number of it
    };

    void run();
    bool catch_up();
    void look_for_the_forgotten();
    void take(NatsMessage message);
    bool fetch_until(std::uint64_t number);
    bool pass_over_the_gone(std::uint64_t& number);
    void put(NatsMessage message);
    Taken& taken_of(std::uint64_t session);
    void forget_the_silent();

    const std::string stream_;
    const Endpoint& own_;
    jsCtx* const jetstream_;
    natsSubscription* const deliveries_;
    const std::shared_ptr<NatsHandling> handling_;
    const Start start_;
    std::atomic<bool>& catches_up_;
    std::uint64_t next_;
    std::unordered_map<std::uint64_t, Taken> taken_;  // by session
    std::atomic<bool> ends_ = false;
    std::thread thread_;
};

}  // namespace vorn

#endif
