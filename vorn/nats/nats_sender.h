// SPDX-License-Identifier: Apache-2.0
// The sending end on NATS: packs batches, publishes them until the stream has stored them, and no more than
// its receiver takes.
#ifndef VORN_NATS_SENDER_H
#define VORN_NATS_SENDER_H

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "vorn/core/transport.h"
#include "vorn/nats/nats_connection.h"
#include "vorn/nats/nats_outbox.h"

namespace vorn {

class NatsSender {
  public:
    // Refers to what it is given.
    NatsSender(const NatsUrl& url, const Endpoint& own) : url_(url), own_(own) {}
    ~NatsSender() { end(); }
    NatsSender(const NatsSender&) = delete;
    NatsSender& operator=(const NatsSender&) = delete;

    bool open(natsConnection* connection, jsCtx* jetstream);
    Result send(const Outgoing& batch, SendTimeout& timeout);  // any thread
    bool drain(Deadline deadline);
    void end();  // while the connection is there; nothing is published from here on
    std::uint64_t batches_on_their_way();
    void connected_again();

  private:
    // To one destination. All threads share its session.
    struct Lane {
        explicit Lane(std::string to) : subject(std::move(to)) {}
        const std::string subject;
        std::mutex lock;
        std::condition_variable changed;
        NatsOutbox outbox{random_name()};
        std::optional<Limits> limits;  // of the receiver; none: it was not asked yet
        std::uint64_t bytes = 0;       // that may be sent until the stream is looked at again
        bool is_looked_at = false;     // by a thread, just now
        Deadline next_look = {};
    };

    Lane& lane_to(std::uint32_t destination);
    std::uint64_t most_payload() const;
    bool fits(const Lane& lane, const BatchHeader& batch) const;
    Result wait_for_capacity(Lane& lane, std::unique_lock<std::mutex>& locked, const BatchHeader& batch,
                             SendTimeout& timeout);
    Result look_for_capacity(Lane& lane, const BatchHeader& batch, Deadline end);
    void publish(Lane& lane, std::uint32_t destination) noexcept;
    void not_taken(Lane& lane, std::uint64_t first);
    void take_answer(const char* subject, natsMsg* answer);
    void run();

    const NatsUrl& url_;
    const Endpoint& own_;
    natsConnection* connection_ = nullptr;
    jsCtx* jetstream_ = nullptr;
    std::string inbox_;  // subject of the stream's answers, up to the last dot
    std::mutex lock_;
    std::condition_variable has_work_;
    std::map<std::uint32_t, std::unique_ptr<Lane>> lanes_;
    bool is_idle_ = true;  // nothing waits for an answer
    bool ends_ = false;
    NatsListener answers_;
    std::thread thread_;
};

}  // namespace vorn

#endif
