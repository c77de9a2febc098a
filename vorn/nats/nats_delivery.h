// SPDX-License-Identifier: Apache-2.0
// A message of a stream, until its batches are handled and the server knows of it.
#ifndef VORN_NATS_DELIVERY_H
#define VORN_NATS_DELIVERY_H

#include <nats/nats.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "vorn/core/envelope.h"
#include "vorn/core/inbox.h"
#include "vorn/nats/nats_connection.h"
#include "vorn/nats/nats_intake.h"
#include "vorn/nats/nats_journal.h"
#include "vorn/nats/nats_lease.h"

namespace vorn {

// Shared by a transport and its deliveries.
struct NatsHandling {
    natsConnection* connection = nullptr;
    Journal journal;
    NatsLease lease;
    std::atomic<std::uint64_t> handled = 0;  // position of the last message
};

inline Bytes bytes_of(const NatsMessage& message) {
    return {reinterpret_cast<const std::uint8_t*>(natsMsg_GetData(message.get())),
            static_cast<std::size_t>(natsMsg_GetDataLength(message.get()))};
}

class NatsDelivery final : public Delivery {
  public:
    // Without batches, it only moves the journal and the server on when its turn has come.
    NatsDelivery(NatsMessage message, std::uint64_t position, std::shared_ptr<NatsHandling> handling)
        : message_(std::move(message)), position_(position), handling_(std::move(handling)) {}

    void judged(const NatsIntake::Verdict& verdict) { forgets_ = verdict.forgets; }

    // `from` are the batches that are not known.
    void hold(const NatsPacket& packet, const NatsIntake::Verdict& verdict, Bytes from) {
        bytes = from;
        batches = packet.count - verdict.skip;
        repeated = verdict.repeats_first || verdict.repeats_all;
        repeats_all_ = verdict.repeats_all;
        remembers_ = !verdict.is_in_doubt;
        session_ = packet.session;
        next_ = packet.first + verdict.skip;
        last_ = packet.last();
    }

    // Not handled: the server shall deliver it again, and at once.
    ~NatsDelivery() override {
        if (!finished_) answer("-NAK");
    }

    bool may_begin() const override { return handling_->lease.holds(Clock::now()); }
    void batch_begins() override {
        forget_if_due();
        handling_->journal.start(position_, next_);
    }
    void batch_handled() override {
        remember(next_++);
        repeated = repeats_all_;
    }
    void finished() override {
        finished_ = true;
        forget_if_due();
        if (last_ != 0) remember(last_);  // also of batches that could not be read
        handling_->journal.finish(position_);
        handling_->handled.store(position_, std::memory_order_release);
        answer("+ACK");
    }

  private:
    void forget_if_due() {
        if (std::exchange(forgets_, false)) handling_->journal.forget();
    }
    void remember(std::uint64_t batch) {
        if (remembers_) handling_->journal.remember({session_, batch, position_});
    }

    // By its subject, so that the subscription may have ended. Lost, the server delivers again, and hears it
    // then.
    void answer(const char* word) const {
        const char* const to = natsMsg_GetReply(message_.get());
        if (to != nullptr) static_cast<void>(natsConnection_PublishString(handling_->connection, to, word));
    }

    NatsMessage message_;
    std::uint64_t position_;
    std::shared_ptr<NatsHandling> handling_;
    bool forgets_ = false;
    bool repeats_all_ = false;
    bool remembers_ = false;
    std::uint64_t session_ = 0;
    std::uint64_t next_ = 0;
    std::uint64_t last_ = 0;
    bool finished_ = false;
};

}  // namespace vorn

#endif
