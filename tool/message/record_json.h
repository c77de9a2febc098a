// SPDX-License-Identifier: Apache-2.0
// Records: of received bytes, of JSON, and as JSON.
#ifndef TOOL_RECORD_JSON_H
#define TOOL_RECORD_JSON_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "inspect/json_text.h"
#include "inspect/record_reader.h"
#include "tool/message/message_type.h"

namespace tool {

using inspect::Json;
using inspect::json_from_text;
using inspect::json_text;
using inspect::RecordError;

// The record as JSON, whole or piece by piece. `put` may throw.
Json to_json(const MessageType& type, const void* record, std::size_t most_elements = SIZE_MAX);
void write_json(const MessageType& type, const void* record, std::size_t most_elements,
                const std::function<void(std::string_view)>& put);

// Records of one type made of JSON, back to back as the send functions take them, with their arrays.
class Records {
  public:
    explicit Records(const MessageType& type) : type_(&type) {}
    ~Records() { clear(); }
    Records(Records&& other) noexcept;
    Records& operator=(Records&&) = delete;
    Records(const Records&) = delete;
    Records& operator=(const Records&) = delete;

    // Throws RecordError.
    void add(const Json& object);
    void append(Records&& more);
    void clear();

    const MessageType& type() const { return *type_; }
    std::size_t size() const { return storage_.size() / type_->record_bytes; }
    const void* operator[](std::size_t index) const { return storage_.data() + index * type_->record_bytes; }

  private:
    const MessageType* type_;
    std::vector<std::byte> storage_;
};

// The message in the compact layout. Throws RecordError.
std::vector<std::uint8_t> packed(const MessageType& type, const void* record);

// Received bytes as unpack reads them, and what it logs: "function: text", as a host's log shows it.
class Unpacked {
  public:
    Unpacked(const MessageType& type, std::span<const std::uint8_t> bytes);
    ~Unpacked() { type_.free_unpacked(record_.data()); }
    Unpacked(const Unpacked&) = delete;
    Unpacked& operator=(const Unpacked&) = delete;

    vorn_verdict verdict() const { return verdict_; }
    bool is_valid() const { return verdict_ == VORN_VERDICT_VALID; }
    const void* record() const { return record_.data(); }
    const std::vector<std::string>& faults() const { return faults_; }
    Json json(std::size_t most_elements = SIZE_MAX) const { return to_json(type_, record(), most_elements); }

  private:
    const MessageType& type_;
    std::vector<std::byte> record_;
    std::vector<std::string> faults_;
    vorn_verdict verdict_;
};

// Whether bytes are read without a fault.
bool is_valid(const MessageType& type, std::span<const std::uint8_t> bytes);

// Why a number of bytes is no message at all.
std::string size_refusal(const MessageType& type, std::size_t bytes);

}  // namespace tool

#endif
