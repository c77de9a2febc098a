// SPDX-License-Identifier: Apache-2.0
#include "vorn/nats/nats_query.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "vorn/core/transport.h"
#include "vorn/nats/nats_address.h"
#include "vorn/nats/nats_connection.h"
#include "vorn/nats/nats_errors.h"

namespace vorn {
namespace {

Result ask(const std::string& rest, bool tls, std::uint32_t address, Deadline deadline, Log& log,
           vorn_bus_counters& counters) {
    const auto url = read_nats_url(rest, tls);
    if (!url) return VORN_BUS_BAD_URL;
    const BlockedSignals blocked;  // in the threads that the client starts
    NatsClient client(log, [] {});
    if (!client.open(*url)) return VORN_BUS_SYSTEM_ERROR;
    std::array<std::uint8_t, kPreambleBytes> question;
    put_preamble(question.data(), Kind::ask);
    natsMsg* answered = nullptr;
    const std::int64_t timeout = std::max<std::int64_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count(), 1);
    if (natsConnection_Request(&answered, client.get(), url->questions(address).c_str(), question.data(),
                               static_cast<int>(question.size()), timeout) != NATS_OK) {
        return VORN_BUS_NO_PEER;
    }
    const NatsMessage answer(answered);
    CounterNumbers values = {};
    const Bytes bytes(reinterpret_cast<const std::uint8_t*>(natsMsg_GetData(answered)),
                      static_cast<std::size_t>(natsMsg_GetDataLength(answered)));
    if (!read_counters(bytes, values)) {
        log.line("the answer of address ", address, " is damaged");
        return VORN_BUS_SYSTEM_ERROR;
    }
    counters = from_numbers(values);
    return VORN_BUS_OK;
}

// The address of a stream's name; none: the stream is none of this prefix.
std::optional<std::uint32_t> address_of(const NatsUrl& url, std::string_view stream) {
    const std::string begin = url.prefix + "-";
    if (!stream.starts_with(begin)) return std::nullopt;
    stream.remove_prefix(begin.size());
    std::uint32_t address = 0;
    const auto [end, fault] = std::from_chars(stream.data(), stream.data() + stream.size(), address);
    if (fault != std::errc() || end != stream.data() + stream.size()) return std::nullopt;
    return address;
}

Result list(const std::string& rest, bool tls, Log& log, std::vector<Listed>& found) {
    const auto url = read_nats_url(rest, tls);
    if (!url) return VORN_BUS_BAD_URL;
    const BlockedSignals blocked;  // in the threads that the client starts
    NatsClient client(log, [] {});
    if (!client.open(*url)) return VORN_BUS_SYSTEM_ERROR;
    jsCtx* made = nullptr;
    natsStatus status = natsConnection_JetStream(&made, client.get(), nullptr);
    const JetStream jetstream(made);
    jsErrCode code = {};
    jsStreamNamesList* named = nullptr;
    const std::string subjects = url->all_batches();
    jsOptions options = short_wait();
    options.Stream.Info.SubjectsFilter = subjects.c_str();
    if (status == NATS_OK) status = js_StreamNames(&named, jetstream.get(), &options, &code);
    const std::unique_ptr<jsStreamNamesList, Destroy<jsStreamNamesList_Destroy>> names(named);
    if (status == NATS_NOT_FOUND) return VORN_BUS_OK;  // no stream at all
    if (status != NATS_OK) {
        log.line("the server does not list its streams: ", nats_reason(status, code));
        return VORN_BUS_SYSTEM_ERROR;
    }
    for (int i = 0; i < names->Count; ++i) {
        const std::string stream = names->List[i];
        if (const auto address = address_of(*url, stream)) {
            found.push_back({*address, has_receiver(jetstream.get(), stream), url->endpoint_text(*address)});
        }
    }
    return VORN_BUS_OK;
}

}  // namespace

bool has_receiver(jsCtx* jetstream, const std::string& stream) {
    jsConsumerInfo* found = nullptr;
    jsOptions timeout = short_wait();
    const natsStatus status =
        js_GetConsumerInfo(&found, jetstream, stream.c_str(), kNatsConsumer, &timeout, nullptr);
    const ConsumerInfo info(found);
    return status == NATS_OK && info->PushBound;
}

Result ask_nats(const std::string& rest, std::uint32_t address, Deadline deadline, Log& log,
                vorn_bus_counters& counters) {
    return ask(rest, false, address, deadline, log, counters);
}
Result ask_nats_tls(const std::string& rest, std::uint32_t address, Deadline deadline, Log& log,
                    vorn_bus_counters& counters) {
    return ask(rest, true, address, deadline, log, counters);
}
Result list_nats(const std::string& rest, Log& log, std::vector<Listed>& found) {
    return list(rest, false, log, found);
}
Result list_nats_tls(const std::string& rest, Log& log, std::vector<Listed>& found) {
    return list(rest, true, log, found);
}

}  // namespace vorn
