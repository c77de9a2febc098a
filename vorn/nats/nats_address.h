// SPDX-License-Identifier: Apache-2.0
// What an address has on its server: a stream that keeps what is sent to it, and a consumer that names the
// process which receives it.
#ifndef VORN_NATS_ADDRESS_H
#define VORN_NATS_ADDRESS_H

#include <nats/nats.h>

#include <cstdint>
#include <string>

#include "vorn/core/transport.h"
#include "vorn/nats/nats_connection.h"
#include "vorn/nats/nats_delivery.h"

namespace vorn {

inline constexpr const char* kNatsConsumer = "receiver";

// How long a question to a stream may take, and so how long closing may wait for one.
jsOptions short_wait();

class NatsAddress {
  public:
    // Refers to what it is given.
    NatsAddress(const NatsUrl& url, const Endpoint& own, natsConnection* connection, jsCtx* jetstream);

    // Makes the stream and its consumer, or finds them as they should be, and names this process there.
    // ADDRESS_TAKEN: another one is connected. SYSTEM_ERROR: fault() says what is wrong.
    Result take(NatsHandling& handling);

    // Who receives by the server's word.
    enum class Named { this_one, another, nobody, unknown };
    Named who_is_named(std::uint64_t name, std::uint64_t* delivered = nullptr);
    void name_again(std::uint64_t name);

    const std::string& fault() const { return fault_; }
    bool may_pass_soon() const { return may_pass_; }

    const std::string& stream() const { return stream_; }
    natsSubscription* deliveries() const { return deliveries_.get(); }
    std::uint64_t first() const { return first_; }  // position of the stream's first message
    std::uint64_t delivered_before() const {
        return delivered_before_;
    }  // and of the last delivered, when taken
    void end_deliveries() { static_cast<void>(natsSubscription_Unsubscribe(deliveries_.get())); }

  private:
    Result refused(const std::string& what, natsStatus status, jsErrCode code);
    Result make_stream(StreamInfo& made);
    natsStatus make_consumer(std::uint64_t name, ConsumerInfo& made, jsErrCode& code);
    bool subscribe(std::uint64_t name);

    const NatsUrl& url_;
    const Endpoint& own_;
    natsConnection* const connection_;
    jsCtx* const jetstream_;
    const std::string stream_;
    NatsSubscription deliveries_;
    std::string fault_;
    bool may_pass_ = false;
    std::uint64_t first_ = 0;
    std::uint64_t delivered_before_ = 0;
};

}  // namespace vorn

#endif
