// SPDX-License-Identifier: Apache-2.0
// When a sender on nats publishes what, and when a batch is stored for sure.
#include "vorn/nats/nats_outbox.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace vorn;
using namespace std::chrono_literals;

constexpr Deadline kNow = Deadline() + 1h;

// "1-2" for each packet that is published now: its first batch and its last.
std::string published(NatsOutbox& outbox, Deadline now) {
    std::string all;
    while (const auto* const packet = outbox.publish(now)) {
        const auto head = read_nats_packet(packet->bytes);
        EXPECT_TRUE(head);
        all += (all.empty() ? "" : " ") + std::to_string(head->first) + "-" + std::to_string(head->last());
    }
    return all;
}

void add(NatsOutbox& outbox, int batches) {
    for (int i = 0; i < batches; ++i) outbox.add(40);
}

TEST(NatsOutbox, ABatchIsPublishedAtOnceAndThoseThatWaitShareAPacket) {
    NatsOutbox outbox(7);
    add(outbox, 1);
    EXPECT_EQ(published(outbox, kNow), "1-1");
    add(outbox, 3);
    EXPECT_EQ(published(outbox, kNow), "2-4");
    EXPECT_EQ(outbox.pending_batches(), 4U);
    EXPECT_EQ(outbox.pending_bytes(), 160U);
}

TEST(NatsOutbox, APacketHasALimitOfBatchesAndOfBytes) {
    NatsOutbox outbox(7);
    add(outbox, NatsOutbox::kMostBatches + 1);
    EXPECT_EQ(published(outbox, kNow), "1-256 257-257");
    outbox.add(NatsOutbox::kMostBytes);
    outbox.add(40);
    outbox.add(40, 100);  // of a server that takes little
    EXPECT_EQ(published(outbox, kNow), "258-258 259-259 260-260");
}

TEST(NatsOutbox, NoMorePacketsThanAFewAreAheadOfTheAnswers) {
    NatsOutbox outbox(7);
    for (std::size_t i = 0; i <= NatsOutbox::kMostPublished; ++i) outbox.add(NatsOutbox::kMostBytes);
    for (std::size_t i = 0; i < NatsOutbox::kMostPublished; ++i) ASSERT_NE(outbox.publish(kNow), nullptr);
    EXPECT_EQ(outbox.publish(kNow), nullptr);
    outbox.stored(1, 1, 100, kNow);
    EXPECT_EQ(published(outbox, kNow), "33-33");
}

TEST(NatsOutbox, WhatIsStoredIsPendingNoMoreAndWaitsForItsReceiver) {
    NatsOutbox outbox(7);
    add(outbox, 2);
    EXPECT_EQ(published(outbox, kNow), "1-2");
    outbox.stored(1, 1, 100, kNow);
    EXPECT_EQ(outbox.pending_batches(), 0U);
    EXPECT_EQ(outbox.wake_at(), Deadline::max());
    EXPECT_EQ(outbox.batches(), 2U);
    outbox.handled_before(100);
    EXPECT_EQ(outbox.batches(), 2U);
    outbox.handled_before(101);
    EXPECT_EQ(outbox.batches(), 0U);
}

TEST(NatsOutbox, AnAnswerThatIsMissingBringsAllFromThereOn) {
    NatsOutbox outbox(7);
    for (int i = 0; i < 3; ++i) {
        add(outbox, 1);
        published(outbox, kNow);
    }
    outbox.stored(2, 1, 101, kNow);  // the first may be lost
    EXPECT_EQ(published(outbox, kNow), "1-1 2-2 3-3");
    outbox.stored(1, 2, 102, kNow);
    EXPECT_EQ(outbox.pending_batches(), 2U);  // the second is stored before the first, and so left out
    outbox.stored(2, 2, 103, kNow);
    outbox.stored(3, 2, 104, kNow);
    EXPECT_EQ(outbox.pending_batches(), 0U);
}

TEST(NatsOutbox, AnAnswerThatComesLateCounts) {
    NatsOutbox outbox(7);
    add(outbox, 1);
    published(outbox, kNow);
    EXPECT_EQ(outbox.wake_at(), kNow + NatsOutbox::kAnswerTime);
    EXPECT_EQ(published(outbox, kNow + NatsOutbox::kAnswerTime), "1-1");
    outbox.stored(1, 1, 100, kNow + 2s);
    EXPECT_EQ(outbox.pending_batches(), 0U);
    outbox.stored(1, 2, 101, kNow + 2s);  // and the other changes nothing
    EXPECT_EQ(outbox.batches(), 1U);
}

TEST(NatsOutbox, AfterARefusalItPausesLongerEachTime) {
    NatsOutbox outbox(7);
    add(outbox, 1);
    Deadline now = kNow;
    std::uint32_t attempt = 0;
    for (const auto pause : {10ms, 20ms, 40ms, 80ms, 160ms, 320ms, 320ms}) {
        ASSERT_EQ(published(outbox, now), "1-1");
        outbox.not_stored(1, attempt, now);  // of an earlier attempt: no news
        EXPECT_EQ(outbox.wake_at(), now + NatsOutbox::kAnswerTime);
        outbox.not_stored(1, ++attempt, now);
        EXPECT_EQ(outbox.wake_at(), now + pause);
        EXPECT_EQ(published(outbox, now), "");
        now += pause;
    }
}

TEST(NatsOutbox, ABatchThatIsTooLargeLeavesAVoidWithItsNumber) {
    NatsOutbox outbox(7);
    outbox.add(5000);
    published(outbox, kNow);
    add(outbox, 1);
    published(outbox, kNow);
    EXPECT_EQ(outbox.too_large(1), 1U);
    EXPECT_EQ(outbox.too_large(1), 0U);  // it is lost once
    const auto* const empty = outbox.publish(kNow);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty->bytes.size(), NatsPacket::kBytes);
    EXPECT_EQ(empty->head.count, 1U);
    EXPECT_EQ(published(outbox, kNow), "2-2");
    EXPECT_EQ(outbox.pending_bytes(), 40U);
}

TEST(NatsOutbox, AnInterruptionBringsAllThatIsPending) {
    NatsOutbox outbox(7);
    add(outbox, 1);
    published(outbox, kNow);
    add(outbox, 1);
    published(outbox, kNow);
    outbox.interrupted(kNow);
    EXPECT_EQ(published(outbox, kNow), "1-1 2-2");
}

}  // namespace
