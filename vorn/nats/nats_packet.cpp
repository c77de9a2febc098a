// SPDX-License-Identifier: Apache-2.0
#include "vorn/nats/nats_packet.h"

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace vorn {

void write_packet(std::uint8_t* at, const NatsPacket& packet) {
    put_preamble(at, Kind::data);
    put(at + 8, packet.session);
    put(at + 16, packet.first);
    put(at + 24, packet.count);
    put(at + 28, packet.pending);
    put(at + 32, packet.attempt);
    put(at + 36, std::uint32_t{0});
}

std::optional<NatsPacket> read_nats_packet(Bytes bytes) {
    if (bytes.size() < NatsPacket::kBytes || kind_of(bytes) != Kind::data) return std::nullopt;
    const std::uint8_t* const at = bytes.data();
    const NatsPacket packet = {get<std::uint64_t>(at + 8), get<std::uint64_t>(at + 16),
                               get<std::uint32_t>(at + 24), get<std::uint32_t>(at + 28),
                               get<std::uint32_t>(at + 32)};
    const bool is_numbered = packet.session != 0 && packet.count != 0 && packet.attempt != 0 &&
                             packet.pending < packet.first && packet.first <= UINT64_MAX - packet.count;
    if (!is_numbered || get<std::uint32_t>(at + 36) != 0) return std::nullopt;
    return packet;
}

std::optional<std::uint64_t> read_stream_number(std::string_view acknowledge_to) {
    constexpr std::string_view kBegin = "$JS.ACK.";
    if (!acknowledge_to.starts_with(kBegin)) return std::nullopt;
    const auto words = 1 + std::count(acknowledge_to.begin(), acknowledge_to.end(), '.');
    // $JS.ACK.STREAM.CONSUMER.DELIVERED.NUMBER...; where there are more, with domain and account before
    // STREAM.
    for (std::ptrdiff_t left = words < 11 ? 5 : 7; left != 0; --left) {
        const std::size_t dot = acknowledge_to.find('.');
        if (dot == std::string_view::npos) return std::nullopt;
        acknowledge_to.remove_prefix(dot + 1);
    }
    std::uint64_t number = 0;
    const char* const end = acknowledge_to.data() + acknowledge_to.size();
    const auto [after, fault] = std::from_chars(acknowledge_to.data(), end, number);
    if (fault != std::errc() || number == 0 || (after != end && *after != '.')) return std::nullopt;
    return number;
}

NatsAnswer read_answer(std::string_view json) {
    const auto answer = nlohmann::json::parse(json, nullptr, false);
    const auto number_of = [](const nlohmann::json& object, const char* name) -> std::uint64_t {
        if (!object.is_object()) return 0;
        const auto found = object.find(name);
        return found != object.end() && found->is_number_unsigned() ? found->get<std::uint64_t>() : 0;
    };
    if (answer.is_object() && answer.contains("error")) {
        constexpr std::uint64_t kUnnamed = 1;
        return {0, static_cast<int>(std::clamp<std::uint64_t>(number_of(answer["error"], "err_code"),
                                                              kUnnamed, INT32_MAX))};
    }
    return {number_of(answer, "seq"), 0};
}

}  // namespace vorn
