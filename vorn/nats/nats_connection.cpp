// SPDX-License-Identifier: Apache-2.0
#include "vorn/nats/nats_connection.h"

#include <algorithm>
#include <string_view>
#include <thread>

#include "vorn/core/transport.h"
#include "vorn/nats/nats_credentials.h"
#include "vorn/nats/nats_errors.h"

namespace vorn {
namespace {

constexpr auto kBetweenConnections = std::chrono::milliseconds(100);

using Options = std::unique_ptr<natsOptions, Destroy<natsOptions_Destroy>>;

natsStatus set_up(natsOptions* options, const NatsUrl& url) {
    std::vector<const char*> servers;
    for (const std::string& server : url.servers) servers.push_back(server.c_str());
    natsStatus status = natsOptions_SetServers(options, servers.data(), static_cast<int>(servers.size()));
    const auto then = [&status](auto&& set) {
        if (status == NATS_OK) status = set();
    };
    then([&] { return natsOptions_SetName(options, "vorn"); });
    then([&] { return natsOptions_SetTimeout(options, 2000); });
    // Else the client waits for a millisecond whether more comes.
    then([&] { return natsOptions_SetSendAsap(options, true); });
    then([&] { return natsOptions_SetMaxReconnect(options, -1); });
    then([&] { return natsOptions_SetReconnectWait(options, 100); });
    then([&] { return natsOptions_SetReconnectJitter(options, 50, 50); });
    // A server that is cut off is noticed in three seconds.
    then([&] { return natsOptions_SetPingInterval(options, 1000); });
    then([&] { return natsOptions_SetMaxPingsOut(options, 2); });
    return status;
}

}  // namespace

bool is_connected(natsConnection* connection) {
    return natsConnection_Status(connection) == NATS_CONN_STATUS_CONNECTED;
}

natsStatus NatsClient::connect(const NatsUrl& url, std::string& fault) {
    natsOptions* made = nullptr;
    natsStatus status = natsOptions_Create(&made);
    const Options options(made);
    if (status == NATS_OK) status = set_up(made, url);
    // Without a handler the client writes to standard error.
    if (status == NATS_OK) status = natsOptions_SetErrorHandler(made, on_error, this);
    if (status == NATS_OK) status = natsOptions_SetDisconnectedCB(made, on_disconnected, this);
    if (status == NATS_OK) status = natsOptions_SetReconnectedCB(made, on_reconnected, this);
    if (status == NATS_OK) status = natsOptions_SetClosedCB(made, on_closed, this);
    if (status == NATS_OK) {
        fault = set_credentials(made, url.tls);
        if (!fault.empty()) return NATS_INVALID_ARG;
    }
    natsConnection* connection = nullptr;
    if (status == NATS_OK) status = natsConnection_Connect(&connection, made);
    connection_.reset(connection);
    if (status != NATS_OK) fault = nats_reason(status, {});
    return status;
}

bool NatsClient::open(const NatsUrl& url, Deadline deadline) {
    std::string servers;
    for (const std::string& server : url.servers) {
        servers += (servers.empty() ? "" : ", ") + display_url(server);
        if (exposes_secret(server)) {
            log_.warning("a password or token goes to ", display_url(server),
                         " unencrypted: use nats+tls://");
        }
    }
    std::string fault;
    natsStatus status = connect(url, fault);
    if (may_pass(status, {}) && Clock::now() < deadline) log_.info("waiting for a server at ", servers);
    while (may_pass(status, {}) && Clock::now() < deadline) {
        std::this_thread::sleep_for(kBetweenConnections);
        status = connect(url, fault);
    }
    if (status != NATS_OK) log_.error("no connection to ", servers, ": ", fault);
    return status == NATS_OK;
}

bool NatsListener::begin(natsConnection* connection, const std::string& subject, natsMsgHandler handler,
                         void* context, const Log& log) {
    natsSubscription* made = nullptr;
    natsStatus status = natsConnection_Subscribe(&made, connection, subject.c_str(), handler, context);
    subscription_.reset(made);
    if (status == NATS_OK) {
        is_over_ = false;
        const auto over = [](void* self) {
            auto& is_over = static_cast<NatsListener*>(self)->is_over_;
            is_over = true;
            is_over.notify_all();
        };
        status = natsSubscription_SetOnCompleteCB(made, over, this);
        if (status != NATS_OK) is_over_ = true;
    }
    if (status != NATS_OK) log.error("subscription to ", subject, ": ", nats_reason(status, {}));
    return status == NATS_OK;
}

void NatsListener::end() {
    if (subscription_ == nullptr) return;
    static_cast<void>(natsSubscription_Unsubscribe(subscription_.get()));
    is_over_.wait(false);
    subscription_.reset();
}

void NatsClient::close() {
    if (connection_ == nullptr || closes_.exchange(true)) return;
    natsConnection_Close(connection_.get());
    closed_.wait(false);
}

void NatsClient::on_error(natsConnection* connection, natsSubscription* /*subscription*/, natsStatus status,
                          void* self) {
    if (status != NATS_NOT_PERMITTED) return;
    const char* words = nullptr;
    static_cast<void>(natsConnection_GetLastError(connection, &words));
    of(self).log_.warning("the server does not permit it: ", words == nullptr ? "" : words,
                          "; docs/nats.md lists the permissions of each role");
}

void NatsClient::on_disconnected(natsConnection* /*connection*/, void* self) {
    if (!of(self).closes_) of(self).log_.warning("the connection to the server is lost");
}

void NatsClient::on_reconnected(natsConnection* /*connection*/, void* self) {
    of(self).log_.info("the connection to the server is up again");
    of(self).connected_again_();
}

void NatsClient::on_closed(natsConnection* /*connection*/, void* self) {
    if (!of(self).closes_) of(self).log_.error("the server refuses this client; open the bus again");
    of(self).closed_ = true;
    of(self).closed_.notify_all();
}

}  // namespace vorn
