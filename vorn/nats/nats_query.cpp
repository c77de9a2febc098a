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

// A connection for a question.
class Asking {
  public:
    Asking(const BusUrl& given, Log& log) : url_(given), client_(log, [] {}) {}

    bool open() { return client_.open(url_); }
    natsConnection* connection() { return client_.get(); }
    // Null: `status` says why.
    JetStream jetstream(natsStatus& status) {
        jsCtx* made = nullptr;
        status = natsConnection_JetStream(&made, client_.get(), nullptr);
        return JetStream(made);
    }
    const NatsUrl& url() const { return url_; }

  private:
    const NatsUrl url_;
    const BlockedSignals blocked_;  // in the threads that the client starts
    NatsClient client_;
};

}  // namespace

bool has_receiver(jsCtx* jetstream, const std::string& stream) {
    jsConsumerInfo* found = nullptr;
    jsOptions timeout = short_wait();
    const natsStatus status =
        js_GetConsumerInfo(&found, jetstream, stream.c_str(), kNatsConsumer, &timeout, nullptr);
    const ConsumerInfo info(found);
    return status == NATS_OK && info->PushBound;
}

Result ask_nats(const BusUrl& url, std::uint32_t address, Deadline deadline, Log& log,
                vorn_bus_counters& counters) {
    Asking asking(url, log);
    if (!asking.open()) return VORN_BUS_SYSTEM_ERROR;
    std::array<std::uint8_t, kPreambleBytes> question;
    put_preamble(question.data(), Kind::ask);
    natsMsg* answered = nullptr;
    const std::int64_t timeout = std::max<std::int64_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count(), 1);
    if (natsConnection_Request(&answered, asking.connection(), asking.url().questions(address).c_str(),
                               question.data(), static_cast<int>(question.size()), timeout) != NATS_OK) {
        return VORN_BUS_NO_PEER;
    }
    const NatsMessage answer(answered);
    CounterNumbers values = {};
    const Bytes bytes(reinterpret_cast<const std::uint8_t*>(natsMsg_GetData(answered)),
                      static_cast<std::size_t>(natsMsg_GetDataLength(answered)));
    if (!read_counters(bytes, values)) {
        log.error("the answer of address ", address, " is damaged");
        return VORN_BUS_SYSTEM_ERROR;
    }
    counters = from_numbers(values);
    return VORN_BUS_OK;
}

Result list_nats(const BusUrl& url, Log& log, std::vector<Listed>& found) {
    Asking asking(url, log);
    if (!asking.open()) return VORN_BUS_SYSTEM_ERROR;
    natsStatus status = NATS_OK;
    const JetStream jetstream = asking.jetstream(status);
    jsErrCode code = {};
    jsStreamInfoList* listed = nullptr;
    const std::string subjects = asking.url().all_batches();
    jsOptions options = short_wait();
    options.Stream.Info.SubjectsFilter = subjects.c_str();
    if (status == NATS_OK) status = js_Streams(&listed, jetstream.get(), &options, &code);
    const std::unique_ptr<jsStreamInfoList, Destroy<jsStreamInfoList_Destroy>> streams(listed);
    if (status == NATS_NOT_FOUND) return VORN_BUS_OK;  // no stream at all
    if (status != NATS_OK) {
        log.error("the server does not list its streams: ", nats_reason(status, code));
        return VORN_BUS_SYSTEM_ERROR;
    }
    for (int i = 0; i < streams->Count; ++i) {
        const jsStreamInfo& info = *streams->List[i];
        const std::string stream = info.Config->Name;
        if (const auto address = address_of(asking.url(), stream)) {
            found.push_back({*address, has_receiver(jetstream.get(), stream),
                             asking.url().endpoint_text(*address), info.State.Bytes});
        }
    }
    return VORN_BUS_OK;
}

Result remove_nats(const BusUrl& url, std::uint32_t address, Log& log) {
    Asking asking(url, log);
    if (!asking.open()) return VORN_BUS_SYSTEM_ERROR;
    natsStatus status = NATS_OK;
    const JetStream jetstream = asking.jetstream(status);
    const std::string stream = asking.url().stream(address);
    if (status == NATS_OK && has_receiver(jetstream.get(), stream)) return VORN_BUS_ADDRESS_TAKEN;
    jsErrCode code = {};
    jsOptions timeout = short_wait();
    if (status == NATS_OK) status = js_DeleteStream(jetstream.get(), stream.c_str(), &timeout, &code);
    if (status == NATS_OK) return VORN_BUS_OK;
    if (code == JSStreamNotFoundErr) return VORN_BUS_NO_PEER;
    log.error("stream ", stream, ": ", nats_reason(status, code));
    return VORN_BUS_SYSTEM_ERROR;
}

}  // namespace vorn
