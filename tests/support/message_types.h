// SPDX-License-Identifier: Apache-2.0
// All message types as values of one type, for tests of what holds for each of them. Records are void
// pointers here, so that such tests are compiled once and not for each type.
#ifndef TESTS_SUPPORT_MESSAGE_TYPES_H
#define TESTS_SUPPORT_MESSAGE_TYPES_H

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/bytes.h"
#include "tests/support/random_record.h"
#include "tests/support/recording_bus.h"

namespace tests {

// Random records of one type back to back, as RandomRecords makes them.
class AnyRecords {
  public:
    AnyRecords(std::shared_ptr<const void> owner, const void* data, std::uint32_t count, std::uint32_t stride)
        : owner_(std::move(owner)), data_(data), count_(count), stride_(stride) {}

    const void* operator*() const { return data_; }
    const void* operator[](std::size_t i) const {
        return static_cast<const std::uint8_t*>(data_) + i * stride_;
    }
    std::uint32_t size() const { return count_; }

  private:
    std::shared_ptr<const void> owner_;
    const void* data_;
    std::uint32_t count_;
    std::uint32_t stride_;
};

struct MessageType {
    std::string name;
    std::uint32_t message_id;
    std::uint32_t record_bytes;
    const char* root_decoder;        // the function under which it allocates arrays
    std::uint32_t complaint_blanks;  // in the line that it logs where that fails
    bool owns_memory;  // has vectors, so it is sent in the compact layout; the others as their fixed image

    // The exported functions.
    std::uint32_t (*pack)(const void* record, std::uint8_t* buffer, std::uint32_t* length);
    std::uint32_t (*unpack)(const std::uint8_t* buffer, std::uint32_t length, void* record);
    void (*free)(void* record);
    std::uint32_t (*send_single)(std::uint32_t destination, const void* record, std::uint64_t target);
    std::uint32_t (*send_batch)(std::uint32_t destination, const void* records, std::uint32_t count,
                                std::uint64_t target);
    std::uint32_t (*send_to)(std::uint32_t destination, const void* records, std::uint32_t count,
                             std::uint64_t target);

    AnyRecords (*random_records)(std::uint64_t seed, Filling filling, std::size_t count,
                                 std::uint32_t most_elements);
    testing::AssertionResult (*same_record)(const void* actual, const void* expected);
    testing::AssertionResult (*stopped_record)(const void* actual, const void* sent);

    // Of each vector that is not empty, the bytes of the array that unpack allocates for it.
    std::vector<std::uint32_t> (*array_bytes)(const void* record);

    AnyRecords random(std::uint64_t seed) const { return random(seed, filling_of(seed)); }
    AnyRecords random(std::uint64_t seed, Filling filling, std::size_t count = 1,
                      std::uint32_t most_elements = kMostElements) const {
        return random_records(seed, filling, count, most_elements);
    }

    // What the exported pack reports as the size, asked for with a null buffer (which logs a line).
    std::uint32_t packed_size(const void* record) const;
    Bytes packed(const void* record) const;

    // The bytes that a single send hands to the bus.
    Bytes sent(const void* record) const;

    // The message in each layout that the library writes for the type.
    std::vector<Bytes> in_all_layouts(const void* record) const;
};

void PrintTo(const MessageType& type, std::ostream* out);

const std::vector<MessageType>& message_types();
std::vector<MessageType> message_types_with_images();

// Zeroed storage for a received record, whose arrays are freed with the scope.
class AnyRecord {
  public:
    explicit AnyRecord(const MessageType& type) : type_(type) {}
    ~AnyRecord() { type_.free(data()); }
    AnyRecord(const AnyRecord&) = delete;
    AnyRecord& operator=(const AnyRecord&) = delete;

    void* data() { return bytes_.data(); }

  private:
    const MessageType& type_;
    alignas(std::max_align_t) std::array<std::uint8_t, RecordingBus::kRecordCapacity> bytes_ = {};
};

}  // namespace tests

// Runs the suite's tests for every message type, or for every one that is sent as its fixed image.
#define NAC_FOR_ALL_MESSAGES(Suite)                                                           \
    INSTANTIATE_TEST_SUITE_P(AllMessages, Suite, testing::ValuesIn(::tests::message_types()), \
                             [](const auto& test) { return test.param.name; })
#define NAC_FOR_MESSAGES_WITH_IMAGES(Suite)                                           \
    INSTANTIATE_TEST_SUITE_P(MessagesWithImages, Suite,                               \
                             testing::ValuesIn(::tests::message_types_with_images()), \
                             [](const auto& test) { return test.param.name; })

#endif
