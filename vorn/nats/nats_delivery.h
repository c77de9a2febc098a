// SPDX-License-Identifier: Apache-2.0
// A batch from a stream, until it is handled and the server knows of it.
#ifndef VORN_NATS_DELIVERY_H
#define VORN_NATS_DELIVERY_H

#include <nats/nats.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

#include "vorn/core/envelope.h"
#include "vorn/core/inbox.h"
#include "vorn/nats/nats_connection.h"
#include "vorn/nats/nats_journal.h"

namespace vorn {

// Shared by a transport and its deliveries.
struct NatsHandling {
    natsConnection* connection = nullptr;
    Journal journal;
    std::atomic<std::uint64_t> handled = 0;
};

class NatsDelivery final : public Delivery {
  public:
    // Without batches, it only moves the journal and the server on when its turn has come.
    NatsDelivery(NatsMessage message, std::uint64_t number, std::shared_ptr<NatsHandling> handling)
        : message_(std::move(message)), number_(number), handling_(std::move(handling)) {}

    Bytes packet() const {
        return {reinterpret_cast<const std::uint8_t*>(natsMsg_GetData(message_.get())),
                static_cast<std::size_t>(natsMsg_GetDataLength(message_.get()))};
    }
    void hold_batch(const Data& data) {
        bytes = packet().subspan(Data::kBytes);
        batches = 1;
        data_ = data;
    }

    // Not handled: the server shall deliver it again, and at once.
    ~NatsDelivery() override {
        if (!finished_) answer("-NAK");
    }

    void batch_begins() override { handling_->journal.start(number_); }
    void finished() override {
        finished_ = true;
        if (data_) handling_->journal.remember({data_->session, data_->first, number_});
        handling_->journal.finish(number_);
        handling_->handled.store(number_, std::memory_order_release);
        answer("+ACK");
    }

  private:
    // By its subject, so that the subscription may have ended. Lost, the server delivers again, and hears it
    // then.
    void answer(const char* word) const {
        const char* const to = natsMsg_GetReply(message_.get());
        if (to != nullptr) static_cast<void>(natsConnection_PublishString(handling_->connection, to, word));
    }

    NatsMessage message_;
    std::uint64_t number_;
    std::shared_ptr<NatsHandling> handling_;
    std::optional<Data> data_;
    bool finished_ = false;
};

}  // namespace vorn

#endif
