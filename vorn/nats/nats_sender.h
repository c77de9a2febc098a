// SPDX-License-Identifier: Apache-2.0
// The sending end on NATS: publishes batches until the stream has stored them, and no more than its receiver
// takes.
#ifndef VORN_NATS_SENDER_H
#define VORN_NATS_SENDER_H

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "vorn/core/transport.h"
#include "vorn/nats/nats_connection.h"

namespace vorn {

class NatsSender {
  public:
    // Refers to what it is given.
    NatsSender(const NatsUrl& url, const Endpoint& own, natsConnection* connection, jsCtx* jetstream);

    Result send(const Outgoing& batch, SendTimeout& timeout);  // any thread

  private:
    // Batches of one session are stored one after the other, so that the receiver recognises by their
    // numbers what it has. Each thread that sends has one to itself meanwhile.
    struct Session {
        std::uint64_t name = 0;
        std::uint64_t sent = 0;  // number of the last batch
    };

    // Of one destination.
    struct Queue {
        std::mutex lock;
        std::condition_variable changed;
        std::vector<Session> idle;
        std::uint64_t batches = 0;  // that may be sent until the stream is looked at again
        std::uint64_t bytes = 0;
        bool looked_at = false;  // by a thread, just now
    };

    Queue& queue_to(std::uint32_t destination);
    Result take_capacity(Queue& queue, const BatchHeader& batch, SendTimeout& timeout);
    Result look_for_capacity(Queue& queue, const BatchHeader& batch, Deadline end);
    Result publish(const std::string& subject, const std::vector<std::uint8_t>& packet, Deadline end);
    Result attempt(const std::string& subject, const std::vector<std::uint8_t>& packet, Deadline end);

    const NatsUrl& url_;
    const Endpoint& own_;
    natsConnection* const connection_;
    jsCtx* const jetstream_;
    std::mutex lock_;
    std::map<std::uint32_t, std::unique_ptr<Queue>> queues_;
};

}  // namespace vorn

#endif
