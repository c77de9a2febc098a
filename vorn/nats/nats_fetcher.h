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
#include <thread>

#include "vorn/core/transport.h"
#include "vorn/nats/nats_address.h"
#include "vorn/nats/nats_connection.h"
#include "vorn/nats/nats_intake.h"

namespace vorn {

struct NatsHandling;

class NatsFetcher {
  public:
    // Refers to what it is given, and runs until it is destroyed. `catches_up` is set from outside when the
    // connection was interrupted.
    NatsFetcher(NatsAddress& address, const Endpoint& own, jsCtx* jetstream,
                std::shared_ptr<NatsHandling> handling, std::atomic<bool>& catches_up);
    ~NatsFetcher();
    NatsFetcher(const NatsFetcher&) = delete;
    NatsFetcher& operator=(const NatsFetcher&) = delete;

  private:
    void run();
    bool catch_up();
    void look_for_the_forgotten();
    void take(NatsMessage message);
    bool fetch_until(std::uint64_t number);
    bool pass_over_the_gone(std::uint64_t& number);
    void put(NatsMessage message);
    void tend_lease();

    NatsAddress& address_;
    const Endpoint& own_;
    jsCtx* const jetstream_;
    const std::shared_ptr<NatsHandling> handling_;
    std::atomic<bool>& catches_up_;
    NatsIntake intake_;
    Deadline next_renewal_;
    std::atomic<bool> ends_ = false;
    std::thread thread_;
};

}  // namespace vorn

#endif
