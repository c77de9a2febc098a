// SPDX-License-Identifier: Apache-2.0
// The envelope and the packets, byte by byte, and what is no envelope.
#include "vorn/core/envelope.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace vorn;
using Buffer = std::vector<std::uint8_t>;

Buffer from_hex(const std::string& text) {
    Buffer bytes;
    for (std::size_t i = 0; i + 1 < text.size();) {
        if (text[i] == ' ') {
            ++i;
            continue;
        }
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(text.substr(i, 2), nullptr, 16)));
        i += 2;
    }
    return bytes;
}

const Buffer kBatch = from_hex(
    "56 4f 52 4e 01 01 00 00 "  // "VORN", version 1, a batch, zeros
    "02 00 00 00 "              // destination
    "01 00 00 00 "              // source
    "88 77 66 55 44 33 22 11 "  // target
    "02 00 00 00 "              // count
    "34 00 00 00 "              // bytes: 32 + 2 * 8 + 3 + 1
    "55 81 b5 09 03 00 00 00 "  // id, length
    "05 00 00 00 01 00 00 00 "  //
    "aa bb cc "                 // the messages
    "dd ");

TEST(Envelope, ABatchIsTheseBytes) {
    const Buffer first = {0xAA, 0xBB, 0xCC};
    const Buffer second = {0xDD};
    const VORN_SendDescriptor descriptors[] = {{first.data(), 0x09B58155, 3}, {second.data(), 5, 1}};
    const auto bytes = batch_bytes(descriptors, 2);
    ASSERT_EQ(bytes, 52U);
    Buffer written(*bytes);
    write_batch(written.data(), {2, 1, 0x1122334455667788, 2, *bytes}, descriptors);
    EXPECT_EQ(written, kBatch);
}

TEST(Envelope, ABatchIsReadAsItWasWritten) {
    const auto batch = read_batch(kBatch);
    ASSERT_TRUE(batch);
    EXPECT_EQ(batch->header().destination, 2U);
    EXPECT_EQ(batch->header().source, 1U);
    EXPECT_EQ(batch->header().target, 0x1122334455667788U);
    EXPECT_EQ(batch->header().count, 2U);
    EXPECT_EQ(batch->header().bytes, 52U);
    std::vector<std::pair<std::uint32_t, Buffer>> messages;
    batch->each_message([&](const Message& message) {
        messages.emplace_back(message.id, Buffer(message.bytes.begin(), message.bytes.end()));
    });
    ASSERT_EQ(messages.size(), 2U);
    EXPECT_EQ(messages[0], std::pair(0x09B58155U, (Buffer{0xAA, 0xBB, 0xCC})));
    EXPECT_EQ(messages[1], std::pair(5U, Buffer{0xDD}));
}

TEST(Envelope, WhatFollowsABatchIsNotOfIt) {
    Buffer two = kBatch;
    two.insert(two.end(), kBatch.begin(), kBatch.end());
    const auto batch = read_batch(two);
    ASSERT_TRUE(batch);
    EXPECT_EQ(batch->header().bytes, 52U);
    EXPECT_TRUE(read_batch(Bytes(two).subspan(52)));
}

TEST(Envelope, CutAnywhereItIsDamaged) {
    for (std::size_t size = 0; size < kBatch.size(); ++size) {
        const Buffer cut(kBatch.begin(), kBatch.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_FALSE(read_batch(cut)) << size;
    }
}

// Bytes of the header and of the lengths carry the structure: no other value of any of them is accepted.
TEST(Envelope, EveryOtherValueOfAStructuralByteIsDamage) {
    std::vector<std::size_t> structural = {0, 1, 2, 3, 4, 5, 6, 7};
    for (std::size_t at = 24; at < 32; ++at) structural.push_back(at);
    for (std::size_t at = 36; at < 40; ++at) structural.push_back(at);
    for (std::size_t at = 44; at < 48; ++at) structural.push_back(at);
    for (const std::size_t at : structural) {
        for (unsigned value = 0; value < 256; ++value) {
            if (value == kBatch[at]) continue;
            Buffer damaged = kBatch;
            damaged[at] = static_cast<std::uint8_t>(value);
            EXPECT_FALSE(read_batch(damaged)) << "byte " << at << " = " << value;
        }
    }
}

TEST(Envelope, SumsOfLengthsDoNotWrap) {
    Buffer damaged = kBatch;
    for (const std::size_t at : {36U, 44U}) {
        put<std::uint32_t>(damaged.data() + at, 0xFFFFFFFE);
    }
    EXPECT_FALSE(read_batch(damaged));
    put<std::uint32_t>(damaged.data() + 36, 0xFFFFFFFF);
    put<std::uint32_t>(damaged.data() + 44, 5);  // 4 modulo 2^32
    EXPECT_FALSE(read_batch(damaged));
    put<std::uint32_t>(damaged.data() + 24, 0x20000002);  // times 8: 16 modulo 2^32
    EXPECT_FALSE(read_batch(damaged));
}

TEST(Envelope, ABatchWithoutMessagesIsDamaged) {
    Buffer empty(kBatch.begin(), kBatch.begin() + 32);
    put<std::uint32_t>(empty.data() + 24, 0);
    put<std::uint32_t>(empty.data() + 28, 32);
    EXPECT_FALSE(read_batch(empty));
}

TEST(Envelope, SizesAbove32BitsAreNone) {
    const VORN_SendDescriptor huge = {nullptr, 1, 0xFFFFFFFF};
    const VORN_SendDescriptor both[] = {huge, huge};
    EXPECT_EQ(batch_bytes(both, 2), std::nullopt);
    EXPECT_EQ(batch_bytes(&huge, 1), std::nullopt);
}

template <class Packet>
Buffer written(const Packet& packet) {
    Buffer bytes(Packet::kBytes);
    write_packet(bytes.data(), packet);
    return bytes;
}

const Hello kHello = {1, 2, 9, 4, 4096, 1, 0};
const Welcome kWelcome = {2, 4, 1000, 0};
const Watch kWatch = {4096, 0};

TEST(Packets, AreTheseBytes) {
    EXPECT_EQ(written(kHello), from_hex("564f524e 01 02 0000 01000000 02000000 "    // source, destination
                                        "0900000000000000 04000000 00100000 "       // first, batches, ring
                                        "01000000 00000000"));                      // it is repeated
    EXPECT_EQ(written(kWelcome), from_hex("564f524e 01 03 0000 02000000 04000000 "  // address, batches
                                          "e8030000 00000000"));                    // bytes of a batch
    EXPECT_EQ(written(kWatch), from_hex("564f524e 01 07 0000 00100000 00000000"));
    const std::uint64_t values[] = {1, 2};
    Buffer counters(kCountersHeaderBytes + 16);
    write_counters(counters.data(), values);
    EXPECT_EQ(counters, from_hex("564f524e 01 06 0000 02000000 00000000 0100000000000000 0200000000000000"));
    Buffer preamble(kPreambleBytes);
    const std::pair<Kind, const char*> bare[] = {{Kind::ask, "564f524e 01 05 0000"},
                                                 {Kind::watching, "564f524e 01 08 0000"},
                                                 {Kind::wake, "564f524e 01 09 0000"}};
    for (const auto& [kind, bytes] : bare) {
        put_preamble(preamble.data(), kind);
        EXPECT_EQ(preamble, from_hex(bytes));
        EXPECT_EQ(kind_of(preamble), kind);
    }
}

TEST(Packets, AreReadAsTheyWereWritten) {
    const auto hello = read_hello(written(kHello));
    ASSERT_TRUE(hello);
    EXPECT_EQ(hello->source, 1U);
    EXPECT_EQ(hello->destination, 2U);
    EXPECT_EQ(hello->first, 9U);
    EXPECT_EQ(hello->batches, 4U);
    EXPECT_EQ(hello->ring_bytes, 4096U);
    EXPECT_EQ(hello->is_repeated, 1U);
    const auto welcome = read_welcome(written(kWelcome));
    ASSERT_TRUE(welcome);
    EXPECT_EQ(welcome->address, 2U);
    EXPECT_EQ(welcome->batches, 4U);
    EXPECT_EQ(welcome->batch_bytes, 1000U);
    const auto watch = read_watch(written(kWatch));
    ASSERT_TRUE(watch);
    EXPECT_EQ(watch->ring_bytes, 4096U);
}

TEST(Packets, OfAnotherKindOrSizeAreDamaged) {
    const std::vector<Buffer> all = {written(kHello), written(kWelcome), written(kWatch)};
    const auto readers = [](Bytes bytes) {
        return std::vector<bool>{read_hello(bytes).has_value(), read_welcome(bytes).has_value(),
                                 read_watch(bytes).has_value()};
    };
    for (std::size_t kind = 0; kind < all.size(); ++kind) {
        std::vector<bool> only(all.size(), false);
        only[kind] = true;
        EXPECT_EQ(readers(all[kind]), only);
        for (std::size_t size = 0; size < all[kind].size(); ++size) {
            EXPECT_EQ(readers(Bytes(all[kind]).first(size)), std::vector<bool>(all.size(), false)) << size;
        }
        Buffer longer = all[kind];
        longer.push_back(0);
        only[kind] = false;
        EXPECT_EQ(readers(longer), only);
    }
}

TEST(Packets, ThatContradictThemselvesAreDamaged) {
    EXPECT_FALSE(read_hello(written(Hello{1, 2, 0, 4, 4096, 1, 0})));  // batches are numbered from 1
    EXPECT_FALSE(read_hello(written(Hello{1, 2, 9, 0, 4096, 1, 0})));  // no batch fits
    EXPECT_FALSE(read_hello(written(Hello{1, 2, 9, 4, 4096, 2, 0})));  // repeated or not
    EXPECT_FALSE(read_hello(written(Hello{1, 2, 9, 4, 4096, 1, 1})));  // zero
    EXPECT_FALSE(read_welcome(written(Welcome{2, 0, 1000, 0})));       // no batch is taken
    EXPECT_FALSE(read_welcome(written(Welcome{2, 4, 1000, 1})));       // zero
    EXPECT_FALSE(read_watch(written(Watch{4096, 1})));                 // zero
}

TEST(Packets, CountersMayBeMoreOrFewerThanTheReaderKnows) {
    const std::uint64_t values[] = {7, 8, 9};
    Buffer bytes(kCountersHeaderBytes + 24);
    write_counters(bytes.data(), values);
    std::uint64_t two[2] = {};
    ASSERT_TRUE(read_counters(bytes, two));
    EXPECT_EQ(two[1], 8U);
    std::uint64_t four[4] = {1, 1, 1, 1};
    ASSERT_TRUE(read_counters(bytes, four));
    EXPECT_EQ(four[2], 9U);
    EXPECT_EQ(four[3], 1U);
    bytes.pop_back();
    EXPECT_FALSE(read_counters(bytes, two));
    put<std::uint32_t>(bytes.data() + 8, 0x20000002);
    EXPECT_FALSE(read_counters(bytes, two));
}

}  // namespace
