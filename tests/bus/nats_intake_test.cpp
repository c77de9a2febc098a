// SPDX-License-Identifier: Apache-2.0
// Which batches of a stream a receiver takes, with its journal and without it.
#include "vorn/nats/nats_intake.h"

#include <gtest/gtest.h>

#include <memory>

#include "vorn/nats/nats_lease.h"
#include "vorn/nats/nats_seen.h"

namespace {

using namespace vorn;
using namespace std::chrono_literals;

class NatsIntakes : public testing::Test {
  protected:
    // As of a receiver that opens, after others were given messages up to `delivered_before`.
    NatsIntake& open(std::uint64_t delivered_before = 0, std::uint64_t first = 1) {
        journal_.open(*memory_);
        journal_.begin(1, 1, delivered_before);
        return open_again(first);
    }
    NatsIntake& open_again(std::uint64_t first = 1) {
        journal_.open(*memory_);
        intake_ = std::make_unique<NatsIntake>(journal_, first);
        return *intake_;
    }

    std::unique_ptr<Journal::Contents> memory_ = std::make_unique<Journal::Contents>();
    Journal journal_;
    std::unique_ptr<NatsIntake> intake_;
};

// Of session 7: its first batch, how many, how many before it are pending, which attempt it is.
NatsPacket packet(std::uint64_t first, std::uint32_t count = 1, std::uint32_t pending = 0,
                  std::uint32_t attempt = 1) {
    return {7, first, count, pending, attempt};
}

TEST_F(NatsIntakes, TakesEachNumberOfASessionOnceAndInOrder) {
    NatsIntake& intake = open();
    EXPECT_TRUE(intake.take(packet(1)).is_taken);
    EXPECT_FALSE(intake.take(packet(1)).is_taken);
    EXPECT_TRUE(intake.take(packet(3, 1, 1)).is_early);
    EXPECT_TRUE(intake.take(packet(2, 2)).is_taken);
    EXPECT_FALSE(intake.take(packet(3, 1, 1)).is_taken);
    EXPECT_EQ(intake.next(), 6U);
}

TEST_F(NatsIntakes, ANumberFarAheadChangesNothing) {
    NatsIntake& intake = open();
    intake.take(packet(1));
    EXPECT_TRUE(intake.take(packet(UINT64_MAX - 1)).is_early);
    EXPECT_TRUE(intake.take(packet(2)).is_taken);
}

TEST_F(NatsIntakes, GoesOnWithinAPacketAfterAKillAndMarksTheBatchInHand) {
    open().take(packet(1, 3));
    journal_.start(1, 1);
    journal_.remember({7, 1, 1});
    journal_.start(1, 2);
    const auto verdict = open_again().take(packet(1, 3));
    EXPECT_TRUE(verdict.is_taken);
    EXPECT_EQ(verdict.skip, 1U);
    EXPECT_TRUE(verdict.repeats_first);
    EXPECT_FALSE(verdict.repeats_all);
}

TEST_F(NatsIntakes, BetweenTwoBatchesAKillMarksNone) {
    open().take(packet(1, 3));
    journal_.start(1, 1);
    journal_.remember({7, 1, 1});
    EXPECT_FALSE(open_again().take(packet(1, 3)).repeats_first);
}

TEST_F(NatsIntakes, WithoutItsJournalItMarksWhatOthersWereGiven) {
    NatsIntake& intake = open(2, 1);
    EXPECT_TRUE(intake.take(packet(5)).repeats_all);
    EXPECT_TRUE(intake.take(packet(6)).repeats_all);
    const auto new_one = intake.take(packet(7));
    EXPECT_TRUE(new_one.is_taken);
    EXPECT_FALSE(new_one.repeats_all);
}

// What is published again may have been handled by another; what never was comes after all that was.
TEST_F(NatsIntakes, WithoutItsJournalASessionIsInDoubtUntilItGoesOn) {
    NatsIntake& intake = open(1, 2);
    const auto again = intake.take(packet(5, 1, 2, 2));
    EXPECT_TRUE(again.is_taken && again.repeats_all && again.is_in_doubt);
    const auto before = intake.take(packet(3, 2, 0, 3));  // the two that were pending
    EXPECT_TRUE(before.is_taken && before.repeats_all && before.is_in_doubt);
    EXPECT_FALSE(intake.take(packet(2)).is_taken);
    const auto goes_on = intake.take(packet(6));
    EXPECT_TRUE(goes_on.is_taken && !goes_on.repeats_all && !goes_on.is_in_doubt);
    EXPECT_FALSE(intake.take(packet(3, 2, 0, 4)).is_taken);
}

TEST_F(NatsIntakes, WhatIsGoneFromTheStreamMakesItForgetItsSessions) {
    NatsIntake& intake = open();
    intake.take(packet(1));
    intake.pass_over_to(9);
    const auto verdict = intake.take(packet(20));
    EXPECT_TRUE(verdict.is_taken && verdict.forgets && !verdict.repeats_all);
    EXPECT_FALSE(intake.take(packet(21)).forgets);
}

TEST_F(NatsIntakes, OfTooManySessionsTheSilentAreForgotten) {
    NatsIntake& intake = open();
    const std::uint64_t sessions = 2 * Journal::kSessions + 1;
    for (std::uint64_t session = 1; session <= sessions; ++session) {
        ASSERT_TRUE(intake.take({session, 1, 1, 0, 1}).is_taken);
    }
    EXPECT_TRUE(intake.take({1, 2, 1, 0, 1}).is_taken);
    EXPECT_TRUE(intake.take({2, 2, 1, 0, 2}).repeats_all);
    EXPECT_FALSE(intake.take({sessions, 1, 1, 0, 2}).is_taken);
}

TEST_F(NatsIntakes, AJournalKeepsTheSessionsThatSentLast) {
    open();
    for (std::uint64_t session = 1; session <= Journal::kSessions + 1; ++session) {
        journal_.remember({session, 5, session});
    }
    EXPECT_TRUE(journal_.forgot());
    EXPECT_EQ(journal_.sessions().size(), Journal::kSessions);
    journal_.remember({2, 4, Journal::kSessions + 2});  // an older one that came again
    for (const Journal::Session& session : journal_.sessions()) EXPECT_EQ(session.last, 5U);
}

TEST(NatsLeases, HoldForFourSecondsAndNotBeforeAnothersAreOver) {
    NatsLease lease;
    const Deadline now = Deadline() + 1h;
    EXPECT_FALSE(lease.holds(now));
    lease.renew(now);
    EXPECT_TRUE(lease.holds(now + 3999ms));
    EXPECT_FALSE(lease.holds(now + 4s));
    lease.wait_for_another(now);
    lease.renew(now + 3s);
    EXPECT_FALSE(lease.holds(now + 3999ms));
    EXPECT_TRUE(lease.holds(now + 4s));
    lease.lose();
    EXPECT_FALSE(lease.holds(now + 4s));
}

TEST(NatsSeenPackets, AreForgottenAfterManyOthers) {
    NatsSeen seen;
    EXPECT_TRUE(seen.add(packet(1)));
    EXPECT_FALSE(seen.add(packet(1)));
    for (std::uint64_t first = 2; first <= NatsSeen::kMost + 1; ++first) ASSERT_TRUE(seen.add(packet(first)));
    EXPECT_EQ(seen.size(), NatsSeen::kMost);
    EXPECT_TRUE(seen.add(packet(1)));
}

}  // namespace
