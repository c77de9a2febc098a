// SPDX-License-Identifier: Apache-2.0
// A connection to NATS: its objects, which end with their scope.
#ifndef VORN_NATS_CONNECTION_H
#define VORN_NATS_CONNECTION_H

#include <nats/nats.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "vorn/core/support.h"
#include "vorn/nats/nats_url.h"

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

bool is_connected(natsConnection* connection);

// Messages of a subject, given to a handler in a thread of the client's.
class NatsListener {
  public:
    NatsListener() = default;
    ~NatsListener() { end(); }
    NatsListener(const NatsListener&) = delete;
    NatsListener& operator=(const NatsListener&) = delete;

    // False: refused; the log has the reason.
    bool begin(natsConnection* connection, const std::string& subject, natsMsgHandler handler, void* context,
               const Log& log);
    natsSubscription* get() const { return subscription_.get(); }

    // When it returns, the handler does not run, nor will.
    void end();

  private:
    NatsSubscription subscription_;
    std::atomic<bool> is_over_ = true;
};

// A connection that is kept: it is made again when it breaks, with a log line. Its callbacks run in
// threads of the client's.
class NatsClient {
  public:
    // `connected_again` is called after each interruption.
    NatsClient(Log& log, std::function<void()> connected_again)
        : log_(log), connected_again_(std::move(connected_again)) {}
    ~NatsClient() { close(); }
    NatsClient(const NatsClient&) = delete;
    NatsClient& operator=(const NatsClient&) = delete;

    // Waits until then for a server that is not up yet. False: refused; the log has the reason.
    bool open(const NatsUrl& url, Deadline deadline = {});
    natsConnection* get() const { return connection_.get(); }

    // When it returns, no callback runs, nor will.
    void close();

  private:
    static NatsClient& of(void* self) { return *static_cast<NatsClient*>(self); }
    natsStatus connect(const NatsUrl& url, std::string& fault);
    static void on_error(natsConnection* connection, natsSubscription* subscription, natsStatus status,
                         void* self);
    static void on_disconnected(natsConnection* connection, void* self);
    static void on_reconnected(natsConnection* connection, void* self);
    static void on_closed(natsConnection* connection, void* self);

    Log& log_;
    const std::function<void()> connected_again_;
    NatsConnection connection_;
    std::atomic<bool> closes_ = false;
    std::atomic<bool> closed_ = false;
};

}  // namespace vorn

#endif
