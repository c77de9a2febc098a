// SPDX-License-Identifier: Apache-2.0
#include "vorn/nats/nats_packet.h"

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>
#include <string>

namespace vorn {
namespace {

constexpr int kUnnamedError = 1;

// {"stream":"vorn-2","seq":12} or {"error":{"err_code":10054,...},"seq":0,...}. No tree is made of it: trees
// allocate when they go.
class AnswerReader final : public nlohmann::json_sax<nlohmann::json> {
  public:
    NatsAnswer answer() const { return error_ == 0 ? NatsAnswer{position_, 0} : NatsAnswer{0, error_}; }

    bool key(string_t& name) override {
        if (depth_ == 1) is_error_ = name == "error";
        if (depth_ == 1 && is_error_) error_ = kUnnamedError;
        is_position_ = depth_ == 1 && name == "seq";
        is_code_ = depth_ == 2 && is_error_ && name == "err_code";
        return true;
    }
    bool number_unsigned(number_unsigned_t number) override {
        if (is_position_) position_ = number;
        if (is_code_ && number != 0 && number <= INT32_MAX) error_ = static_cast<int>(number);
        return true;
    }
    bool start_object(std::size_t /*size*/) override { return ++depth_ < kDeepest; }
    bool end_object() override { return --depth_ >= 0; }
    bool start_array(std::size_t size) override { return start_object(size); }
    bool end_array() override { return end_object(); }
    bool null() override { return true; }
    bool boolean(bool /*value*/) override { return true; }
    bool number_integer(number_integer_t /*value*/) override { return true; }
    bool number_float(number_float_t /*value*/, const string_t& /*text*/) override { return true; }
    bool string(string_t& /*value*/) override { return true; }
    bool binary(binary_t& /*value*/) override { return true; }
    bool parse_error(std::size_t /*at*/, const std::string& /*token*/,
                     const nlohmann::json::exception& /*fault*/) override {
        return false;
    }

  private:
    static constexpr int kDeepest = 8;
    std::uint64_t position_ = 0;
    int error_ = 0;
    int depth_ = 0;
    bool is_error_ = false;
    bool is_position_ = false;
    bool is_code_ = false;
};

}  // namespace

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
    AnswerReader reader;
    if (!nlohmann::json::sax_parse(json, &reader)) return {0, kUnnamedError};
    return reader.answer();
}

}  // namespace vorn
