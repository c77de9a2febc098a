// SPDX-License-Identifier: Apache-2.0
#include "tool/message/record_json.h"

#include <fmt/format.h>

#include <new>
#include <utility>

#include "tool/io/carried_exception.h"
#include "tool/message/host_services.h"

namespace tool {

void write_json(const MessageType& type, const void* record, std::size_t most_elements,
                const std::function<void(std::string_view)>& put) {
    struct Writing {
        const std::function<void(std::string_view)>& put;
        CarriedException exception;
    } writing = {put, {}};
    const auto write = [](const char* text, std::size_t bytes, void* context) {
        auto& self = *static_cast<Writing*>(context);
        self.exception.call([&] { self.put({text, bytes}); });
        return self.exception.is_empty() ? 0 : 1;
    };
    vorn_inspect_to_json(&type, record, most_elements, write, &writing);
    writing.exception.rethrow();
}

Json to_json(const MessageType& type, const void* record, std::size_t most_elements) {
    std::string text;
    write_json(type, record, most_elements, [&text](std::string_view piece) { text += piece; });
    return Json::parse(text);
}

Records::Records(Records&& other) noexcept
    : type_(other.type_), storage_(std::exchange(other.storage_, {})) {}

void Records::add(const Json& object) {
    const std::size_t start = storage_.size();
    storage_.resize(start + type_->record_bytes);
    try {
        inspect::read_record(object, *type_, storage_.data() + start);
    } catch (...) {
        vorn_inspect_free_record(type_, storage_.data() + start);
        storage_.resize(start);
        throw;
    }
}

void Records::append(Records&& more) {
    storage_.insert(storage_.end(), more.storage_.begin(), more.storage_.end());
    more.storage_.clear();
}

void Records::clear() {
    for (std::size_t at = 0; at < storage_.size(); at += type_->record_bytes) {
        vorn_inspect_free_record(type_, storage_.data() + at);
    }
    storage_.clear();
}

std::vector<std::uint8_t> packed(const MessageType& type, const void* record) {
    std::uint32_t length = vorn_inspect_packed_bytes(&type, record);
    std::vector<std::uint8_t> bytes(length);
    if (type.pack(record, bytes.data(), &length) != 0) {
        throw RecordError(fmt::format("{}: cannot be packed", type.name));
    }
    bytes.resize(length);
    return bytes;
}

Unpacked::Unpacked(const MessageType& type, std::span<const std::uint8_t> bytes)
    : type_(type), record_(type.record_bytes) {
    constexpr std::uint8_t nothing = 0;  // no bytes, but not null
    LogLines lines;
    verdict_ =
        vorn_inspect_unpack(&type, bytes.empty() ? &nothing : bytes.data(), bytes.size(), record_.data());
    if (verdict_ == VORN_VERDICT_NO_MEMORY) throw std::bad_alloc();
    faults_ = lines.take();
}

bool is_valid(const MessageType& type, std::span<const std::uint8_t> bytes) {
    return vorn_inspect_verify(&type, bytes.data(), bytes.size(), nullptr, nullptr) == VORN_VERDICT_VALID;
}

std::string size_refusal(const MessageType& type, std::size_t bytes) {
    return fmt::format("{}: {} bytes are no message; it has {} to {}", type.name, bytes,
                       VORN_SHORTEST_MESSAGE, VORN_LONGEST_MESSAGE);
}

}  // namespace tool
