// SPDX-License-Identifier: Apache-2.0
#include "vorn/nats/nats_connection.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <string_view>
#include <thread>

#include "vorn/core/transport.h"
#include "vorn/nats/nats_credentials.h"
#include "vorn/nats/nats_errors.h"

namespace vorn {
namespace {

constexpr auto kBetweenConnections = std::chrono::milliseconds(100);

using Options = std::unique_ptr<natsOptions, Destroy<natsOptions_Destroy>>;

// What names of streams and subjects may hold everywhere.
bool is_name(std::string_view text) {
    return !text.empty() && text.size() <= 64 && std::all_of(text.begin(), text.end(), [](char character) {
        return std::isalnum(static_cast<unsigned char>(character)) != 0 || character == '_' ||
               character == '-';
    });
}

std::vector<std::string> split(const std::string& text, char at) {
    std::vector<std::string> parts;
    std::size_t from = 0;
    for (std::size_t end = text.find(at); end != std::string::npos; end = text.find(at, from)) {
        parts.push_back(text.substr(from, end - from));
        from = end + 1;
    }
    parts.push_back(text.substr(from));
    return parts;
}

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

std::optional<NatsUrl> read_nats_url(const std::string& rest, bool tls) {
    NatsUrl url;
    url.tls = tls;
    const std::size_t mark = rest.find('?');
    for (const std::string& server : split(rest.substr(0, mark), ',')) {
        const std::size_t colon = server.rfind(':');
        if (colon == std::string::npos || colon == 0 || colon + 1 == server.size()) return std::nullopt;
        if (server.find_first_not_of("0123456789", colon + 1) != std::string::npos) return std::nullopt;
        url.servers.push_back((tls ? "tls://" : "nats://") + server);
    }
    if (mark == std::string::npos) return url;
    for (const std::string& option : split(rest.substr(mark + 1), '&')) {
        const std::size_t equals = option.find('=');
        if (equals == std::string::npos) return std::nullopt;
        const std::string name = option.substr(0, equals);
        const std::string value = option.substr(equals + 1);
        if (name == "prefix" && is_name(value)) {
            url.prefix = value;
        } else if (name == "replicas" && value.size() == 1 && value[0] >= '1' && value[0] <= '5') {
            url.replicas = value[0] - '0';
        } else if (name == "state" && !value.empty()) {
            url.state = value;
        } else {
            return std::nullopt;
        }
    }
    return url;
}

std::string limits_text(const Limits& limits) {
    return "VORN 2: batches=" + std::to_string(limits.batches) + " bytes=" + std::to_string(limits.bytes) +
           " batch_bytes=" + std::to_string(limits.batch_bytes);
}

std::optional<Limits> read_limits(const char* text) {
    if (text == nullptr) return std::nullopt;
    std::string_view rest = text;
    // Takes the words off, and the number that follows them.
    const auto take = [&rest](std::string_view words, std::uint32_t& number) {
        if (!rest.starts_with(words)) return false;
        rest.remove_prefix(words.size());
        const auto [end, fault] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
        rest.remove_prefix(static_cast<std::size_t>(end - rest.data()));
        return fault == std::errc();
    };
    Limits limits = {};
    // Written by a receiver of this version; of a later one, more may follow.
    if (!take("VORN 2: batches=", limits.batches) || !take(" bytes=", limits.bytes) ||
        !take(" batch_bytes=", limits.batch_bytes)) {
        return std::nullopt;
    }
    return limits;
}

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
            log_.line("a password or token goes to ", display_url(server), " unencrypted: use nats+tls://");
        }
    }
    std::string fault;
    natsStatus status = connect(url, fault);
    if (may_pass(status, {}) && Clock::now() < deadline) log_.line("waiting for a server at ", servers);
    while (may_pass(status, {}) && Clock::now() < deadline) {
        std::this_thread::sleep_for(kBetweenConnections);
        status = connect(url, fault);
    }
    if (status != NATS_OK) log_.line("no connection to ", servers, ": ", fault);
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
    if (status != NATS_OK) log.line("subscription to ", subject, ": ", nats_reason(status, {}));
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
    of(self).log_.line_about_outside("the server does not permit it: ", words == nullptr ? "" : words,
                                     "; docs/nats.md lists the permissions of each role");
}

void NatsClient::on_disconnected(natsConnection* /*connection*/, void* self) {
    if (!of(self).closes_) of(self).log_.line("the connection to the server is lost");
}

void NatsClient::on_reconnected(natsConnection* /*connection*/, void* self) {
    of(self).log_.line("the connection to the server is up again");
    of(self).connected_again_();
}

void NatsClient::on_closed(natsConnection* /*connection*/, void* self) {
    if (!of(self).closes_) of(self).log_.line("the server refuses this client; open the bus again");
    of(self).closed_ = true;
    of(self).closed_.notify_all();
}

}  // namespace vorn
