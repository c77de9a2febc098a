// SPDX-License-Identifier: Apache-2.0
// What stands around the batches in a stream's message, and what servers say of messages.
#include "vorn/nats/nats_packet.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace {

using namespace vorn;

const std::vector<std::uint8_t> kBytes = {
    0x56, 0x4f, 0x52, 0x4e, 1,    4,    0,    0,     // "VORN", version 1, data
    0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11,  // session
    5,    0,    0,    0,    0,    0,    0,    0,     // number of the first batch
    3,    0,    0,    0,                             // three batches
    4,    0,    0,    0,                             // the four before them may not be stored
    2,    0,    0,    0,                             // published for the second time
    0,    0,    0,    0};

std::vector<std::uint8_t> with(std::size_t at, std::uint8_t value) {
    std::vector<std::uint8_t> bytes = kBytes;
    bytes[at] = value;
    return bytes;
}

TEST(NatsPacket, IsWrittenAndReadByteForByte) {
    std::vector<std::uint8_t> written(NatsPacket::kBytes);
    write_packet(written.data(), NatsPacket{0x1122334455667788, 5, 3, 4, 2});
    EXPECT_EQ(written, kBytes);
    const auto read = read_nats_packet(kBytes);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->session, 0x1122334455667788U);
    EXPECT_EQ(read->first, 5U);
    EXPECT_EQ(read->last(), 7U);
    EXPECT_EQ(read->pending, 4U);
    EXPECT_EQ(read->attempt, 2U);
    EXPECT_FALSE(read->is_sure());
}

TEST(NatsPacket, WhatDoesNotAddUpIsDamaged) {
    EXPECT_FALSE(read_nats_packet(Bytes(kBytes).first(39)));
    EXPECT_FALSE(read_nats_packet(with(0, 'v')));
    EXPECT_FALSE(read_nats_packet(with(5, 1)));   // a batch
    EXPECT_FALSE(read_nats_packet(with(16, 4)));  // as many are pending as there can be before the first
    EXPECT_FALSE(read_nats_packet(with(24, 0)));  // no batch
    EXPECT_FALSE(read_nats_packet(with(32, 0)));  // never published
    EXPECT_FALSE(read_nats_packet(with(36, 1)));
    std::vector<std::uint8_t> wraps = kBytes;
    std::fill(wraps.begin() + 16, wraps.begin() + 24, std::uint8_t{0xff});
    EXPECT_FALSE(read_nats_packet(wraps));
}

TEST(NatsPacket, AMessagesNumberStandsInTheSubjectOfItsAcknowledgement) {
    EXPECT_EQ(read_stream_number("$JS.ACK.vorn-2.receiver.1.77.88.1700000000.0"), 77U);
    EXPECT_EQ(read_stream_number("$JS.ACK.domain.account.vorn-2.receiver.1.78.88.1700000000.0.random"), 78U);
    for (const char* const subject :
         {"", "_INBOX.1", "$JS.ACK.vorn-2", "$JS.ACK.vorn-2.receiver.1.0.88.1.0",
          "$JS.ACK.vorn-2.receiver.1.7x.88.1.0", "$JS.ACK.vorn-2.receiver.1..88.1.0"}) {
        EXPECT_FALSE(read_stream_number(subject)) << subject;
    }
}

TEST(NatsPacket, AStreamAnswersWithAPositionOrAnError) {
    EXPECT_EQ(read_answer(R"({"stream":"vorn-2","seq":12,"domain":"a"})").position, 12U);
    const NatsAnswer refused = read_answer(
        R"({"error":{"code":400,"err_code":10054,"description":"seq"},"stream":"vorn-2","seq":0})");
    EXPECT_EQ(refused.position, 0U);
    EXPECT_EQ(refused.error, 10054);
    for (const char* const said : {"", "{", "[1]", R"({"seq":-1})", R"({"other":{"seq":3}})",
                                   R"({"error":{},"seq":3})", R"({"a":[[[[[[[[[1]]]]]]]],"seq":3})"}) {
        EXPECT_EQ(read_answer(said).position, 0U) << said;
    }
}

}  // namespace
