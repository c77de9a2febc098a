// SPDX-License-Identifier: Apache-2.0
// Damaged messages of every type: unpack stays inside the bytes, leaks nothing, and keeps what it had read.
//
// All messages end right before an unmapped page, so that reading one byte too many kills the test.
#include <cstdint>
#include <cstring>
#include <functional>
#include <numeric>

#include "tests/support/message.h"
#include "tests/support/message_types.h"

namespace {

using namespace tests;

constexpr std::uint64_t kRecords = 8;      // of every type, twice each filling
constexpr std::size_t kCapacity = 16384;   // for the largest message
constexpr std::uint32_t kFewElements = 2;  // keeps the messages of which every byte is changed small
constexpr std::uint32_t kShortestBuffer = 4;

class Damage : public MessageTest, public testing::WithParamInterface<MessageType> {
  protected:
    // Unpacks `bytes`; `check` sees the record before it is freed. Nothing may stay allocated.
    void unpack(const std::uint8_t* bytes, std::size_t length, const std::function<void(void*)>& check) {
        services.reset();
        const std::size_t live_before = services.live_blocks();
        {
            AnyRecord record(type);
            std::uint8_t* const buffer = guarded.last(length);
            std::memcpy(buffer, bytes, length);
            EXPECT_EQ(type.unpack(buffer, static_cast<std::uint32_t>(length), record.data()),
                      type.record_bytes);
            check(record.data());
        }
        EXPECT_EQ(services.live_blocks(), live_before);
    }

    // Gives `check` every proper beginning of `message`, and the record that it unpacks to.
    void for_all_beginnings(const Bytes& message,
                            const std::function<void(std::size_t length, const void* record)>& check) {
        for (std::size_t length = 0; length < message.size() && !HasFailure(); ++length) {
            SCOPED_TRACE(length);
            unpack(message.data(), length, [&](const void* record) {
                check(length, record);
                EXPECT_LE(services.log_lines().size(), 1U);
            });
        }
    }

    const MessageType& type = GetParam();
    GuardedBuffer guarded{kCapacity};
};

class Truncation : public Damage {};
NAC_FOR_ALL_MESSAGES(Truncation);

// After its last byte a compact message has nothing that could be missing.
TEST_P(Truncation, CompactMessageGivesTheFieldsBeforeTheCutAndNoArrays) {
    for (std::uint64_t seed = 0; seed < kRecords && !HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        const AnyRecords sent = type.random(seed);
        for_all_beginnings(type.packed(*sent), [&](std::size_t /*length*/, const void* record) {
            EXPECT_TRUE(type.stopped_record(record, *sent));
        });
    }
}

TEST_P(Truncation, LessThanARootReferenceLeavesTheRecordAndNamesTheLength) {
    const Bytes message = type.packed(*type.random(1));
    for (std::uint32_t length = 0; length < kShortestBuffer; ++length) {
        services.reset();
        const Bytes before(type.record_bytes, 0xAA);
        Bytes record = before;
        std::memcpy(guarded.last(length), message.data(), length);
        EXPECT_EQ(type.unpack(guarded.last(length), length, record.data()), type.record_bytes);
        EXPECT_TRUE(same_bytes(record, before));
        EXPECT_EQ(logged(), Lines{type.name + "_unpack: [KAPLO]:Param invalid(nonNull, " +
                                  std::to_string(length) + ", nonNull)"});
    }
}

class VtableAtTheEnd : public Damage {};
NAC_FOR_ALL_MESSAGES(VtableAtTheEnd);

// A table may precede its vtable, after which nothing need follow: slots are read up to the last, not beyond.
TEST_P(VtableAtTheEnd, IsReadAsItIsElsewhere) {
    for (std::uint64_t seed = 0; seed < 2 * kRecords && !HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        const AnyRecords sent = type.random(seed);
        const Bytes compact = type.packed(*sent);
        const std::uint32_t table = get32(compact, 0);
        const std::uint32_t vtable = table - get32(compact, table);
        const std::uint32_t vtable_end = vtable + get16(compact, vtable);
        ASSERT_LE(vtable_end, table);
        Bytes message = {4, 0, 0, 0};  // root reference
        message.insert(message.end(), compact.begin() + table, compact.end());
        put32(message, 4, 4 - static_cast<std::uint32_t>(message.size()));  // soffset: from vtable to table
        message.insert(message.end(), compact.begin() + vtable, compact.begin() + vtable_end);
        unpack(message.data(), message.size(), [&](const void* record) {
            EXPECT_TRUE(type.same_record(record, *sent));
            EXPECT_TRUE(services.log_lines().empty());
        });
    }
}

class ImageTruncation : public Damage {};
NAC_FOR_MESSAGES_WITH_IMAGES(ImageTruncation);

// An image ends with its root vtable, so that cuts are found before any field is read; only the padding
// after the vtable may be missing.
TEST_P(ImageTruncation, GivesNothingUnlessOnlyPaddingIsMissing) {
    const AnyRecords zero = type.random(0, Filling::zero);
    for (std::uint64_t seed = 0; seed < kRecords && !HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        const AnyRecords sent = type.random(seed);
        const Bytes image = type.sent(*sent);
        const std::uint32_t vtable = 4 - get32(image, 4);
        const std::uint32_t written = vtable + get16(image, vtable);
        for_all_beginnings(image, [&](std::size_t length, const void* record) {
            EXPECT_TRUE(type.same_record(record, length < written ? *zero : *sent));
            EXPECT_EQ(services.log_lines().size(), length < written ? 1U : 0U);
        });
    }
}

class ChangedByte : public Damage {
  protected:
    // Replaces each byte of `message` by each of a handful of values in turn.
    void for_all_changes(const Bytes& message, const std::function<void()>& check) {
        Bytes changed = message;
        for (std::size_t at = 0; at < message.size() && !HasFailure(); ++at) {
            const std::uint8_t flipped = message[at] ^ 1;
            for (const std::uint8_t value : {std::uint8_t{0x00}, std::uint8_t{0x01}, std::uint8_t{0x7F},
                                             std::uint8_t{0x80}, std::uint8_t{0xFF}, flipped}) {
                SCOPED_TRACE(testing::Message() << "byte " << at << " is " << unsigned{value});
                changed[at] = value;
                unpack(changed.data(), changed.size(), [&](const void*) { check(); });
            }
            changed[at] = message[at];
        }
    }

    std::uint64_t allocated() const {
        const auto allocations = services.allocations();
        return std::accumulate(allocations.begin(), allocations.end(), std::uint64_t{0},
                               [](std::uint64_t sum, const auto& each) { return sum + each.size; });
    }
};
NAC_FOR_ALL_MESSAGES(ChangedByte);

// 37 is what a reference of 4 bytes to the largest element, of 148, comes to.
TEST_P(ChangedByte, NeitherReadsBeyondNorLeaksNorAllocatesMoreThan37TimesTheMessage) {
    const AnyRecords sent = type.random(3, Filling::rich, 1, kFewElements);
    for (const Bytes& message : type.in_all_layouts(*sent)) {
        for_all_changes(message, [&] {
            EXPECT_LE(allocated(), 37 * message.size());
            EXPECT_LE(services.log_lines().size(), 1U);
        });
    }
}

// Nothing forbids vectors to share bytes, so each may claim all that is left of the message. Zeros are valid
// elements: a reference of 0 leads to itself, an empty table.
TEST_F(MessageTest, VectorsThatShareTheirElementsTakeAtMost47TimesTheMessage) {
    constexpr std::size_t vectors = 8;
    // In the order of their counts: those of tables last, as counts are no references.
    constexpr std::size_t ids[vectors] = {15, 16, 31, 42, 51, 52, 12, 32};
    constexpr std::uint32_t element_bytes[vectors] = {2, 2, 1, 1, 1, 4, 4, 4};
    constexpr std::uint32_t vtable = 4;
    constexpr std::uint32_t table = vtable + 114;
    constexpr std::uint32_t references = table + 4;
    constexpr std::uint32_t counts = references + 4 * vectors;

    Bytes message(20000, 0);
    const auto size = static_cast<std::uint32_t>(message.size());
    put32(message, 0, table);
    put16(message, vtable, 114);
    put32(message, table, table - vtable);
    for (std::uint32_t i = 0; i < vectors; ++i) {
        const std::uint32_t reference = references + 4 * i;
        const std::uint32_t count = counts + 4 * i;
        put16(message, vtable + 4 + 2 * ids[i], static_cast<std::uint16_t>(reference - table));
        put32(message, reference, count - reference);
        put32(message, count, (size - count - 4) / element_bytes[i]);
    }

    const Unpacked<Nac_SetUserTableMsg> record(message);
    EXPECT_NE(record->f32, nullptr);
    EXPECT_EQ(record->f32_count, (size - counts - 32) / 4);
    EXPECT_EQ(record->f52_count, (size - counts - 24) / 4);
    EXPECT_EQ(services.allocations().size(), vectors);
    std::uint64_t allocated = 0;
    for (const Allocation& each : services.allocations()) {
        EXPECT_LE(each.size, 37 * message.size());
        allocated += each.size;
    }
    EXPECT_GT(allocated, 46 * message.size());
    EXPECT_LE(allocated, 47 * message.size());
}

}  // namespace
