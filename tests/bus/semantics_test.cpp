// SPDX-License-Identifier: Apache-2.0
// What the bus promises on every transport.
#include <poll.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <map>
#include <thread>

#include "tests/bus/fixture.h"

namespace {

using namespace tests;
using namespace std::chrono_literals;

constexpr std::uint32_t kSender = 1;
constexpr std::uint32_t kReceiver = 2;

class Semantics : public BusTest {};

INSTANTIATE_TEST_SUITE_P(On, Semantics, testing::ValuesIn(transports()),
                         [](const auto& of) { return of.param; });

void impatient(vorn_bus_options& options) { options.send_timeout_ms = 100; }

void narrow(vorn_bus_options& options) {
    options.queue_batches = 4;
    options.send_timeout_ms = 1000;
}

TEST_P(Semantics, AMessageArrivesWithItsIdAddressesTargetAndRecord) {
    TestBus sender(url(), kSender);
    TestBus receiver(url(), kReceiver);
    ASSERT_EQ(sender.send(kReceiver, {24, 1}, 0x1122334455667788), 0U);
    ASSERT_TRUE(receiver.poll_until(1));
    const Arrived message = receiver.arrived().at(0);
    EXPECT_EQ(message.message_id, Nac_SetPortMsg_ID);
    EXPECT_EQ(message.source, kSender);
    EXPECT_EQ(message.destination, kReceiver);
    EXPECT_EQ(message.flags, 0U);
    EXPECT_EQ(message.target, 0x1122334455667788U);
    EXPECT_EQ(message.record_bytes, sizeof(Nac_SetPortMsg));
    EXPECT_EQ(message.packed.size(), 24U);
    EXPECT_EQ(message.port().f0, 24U);
    EXPECT_EQ(message.port().f1, 1U);
}

TEST_P(Semantics, ArraysAreUnpackedForTheHandlerAndFreedAfterIt) {
    TestBus sender(url(), kSender);
    TestBus receiver(url(), kReceiver);
    std::array<std::uint8_t, 3> text = {7, 8, 9};
    Nac_SetUserTableMsg record = {};
    record.f0 = 5;
    record.f31_count = text.size();
    record.f31 = text.data();
    std::size_t blocks_in_handler = 0;
    std::vector<std::uint8_t> seen;
    receiver.on_message = [&](const vorn_bus_message& message) {
        const auto& table = *static_cast<const Nac_SetUserTableMsg*>(message.record);
        seen.assign(table.f31, table.f31 + table.f31_count);
        blocks_in_handler = services.live_blocks();
    };
    vorn_bus_use(sender.get());
    ASSERT_EQ(Nac_SetUserTableMsg__sendmsg(kReceiver, &record, 1), 0U);
    ASSERT_TRUE(receiver.poll_until(1));
    EXPECT_EQ(seen, (std::vector<std::uint8_t>{7, 8, 9}));
    EXPECT_EQ(blocks_in_handler, 1U);
    EXPECT_EQ(services.live_blocks(), 0U);
}

TEST_P(Semantics, ABatchIsOneBatchAndComesInItsOrder) {
    TestBus sender(url(), kSender);
    TestBus receiver(url(), kReceiver);
    std::vector<Nac_SetPortMsg> batch;
    for (std::uint32_t i = 0; i < 100; ++i) batch.push_back({i, 2 * i});
    ASSERT_EQ(sender.send(kReceiver, batch), 0U);
    ASSERT_TRUE(receiver.poll_until(100));
    const auto arrived = receiver.arrived();
    ASSERT_EQ(arrived.size(), 100U);
    for (std::uint32_t i = 0; i < 100; ++i) {
        EXPECT_EQ(arrived[i].port().f0, i);
        EXPECT_EQ(arrived[i].port().f1, 2 * i);
    }
    EXPECT_EQ(sender.counters().sent_batches, 1U);
    EXPECT_EQ(sender.counters().sent_messages, 100U);
    EXPECT_EQ(receiver.counters().received_batches, 1U);
    EXPECT_EQ(receiver.counters().received_messages, 100U);
}

TEST_P(Semantics, BatchesArriveInTheirOrderOnceEach) {
    constexpr std::uint32_t kBatches = 3000;
    TestBus sender(url(), kSender);
    TestBus receiver(url(), kReceiver);
    ASSERT_EQ(vorn_bus_start(receiver.get()), 0);
    for (std::uint32_t i = 0; i < kBatches; ++i) ASSERT_EQ(sender.send(kReceiver, {i, 0}), 0U);
    ASSERT_EQ(vorn_bus_flush(sender.get(), 10000), 0);
    ASSERT_TRUE(eventually([&] { return receiver.counters().received_batches >= kBatches; }));
    const auto arrived = receiver.arrived();
    ASSERT_EQ(arrived.size(), kBatches);
    for (std::uint32_t i = 0; i < kBatches; ++i) ASSERT_EQ(arrived[i].port().f0, i);
    EXPECT_EQ(receiver.counters().redelivered_batches, 0U);
}

TEST_P(Semantics, SixtyFourThreadsSendAtOnceEachInItsOrder) {
    constexpr std::uint32_t kThreads = 64;
    constexpr std::uint32_t kEach = 100;
    TestBus sender(url(), kSender, [](vorn_bus_options& options) { options.send_timeout_ms = 20000; });
    TestBus receiver(url(), kReceiver);
    ASSERT_EQ(vorn_bus_start(receiver.get()), 0);
    vorn_bus_use(sender.get());
    std::atomic<std::uint32_t> refused = 0;
    std::vector<std::thread> threads;
    for (std::uint32_t thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([thread, &refused] {
            for (std::uint32_t i = 0; i < kEach; ++i) {
                const Nac_SetPortMsg record = {thread, i};
                if (Nac_SetPortMsg__sendmsg(kReceiver, &record, 1) != 0) ++refused;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(refused, 0U);
    ASSERT_TRUE(eventually([&] { return receiver.counters().received_batches >= kThreads * kEach; }, 30s));
    std::map<std::uint32_t, std::uint32_t> next;
    for (const Arrived& message : receiver.arrived()) {
        ASSERT_EQ(message.port().f1, next[message.port().f0]++) << "of thread " << message.port().f0;
    }
    EXPECT_EQ(next.size(), kThreads);
    EXPECT_EQ(receiver.counters().received_messages, kThreads * kEach);
}

TEST_P(Semantics, AFullQueueIsReportedToTheSenderAndNothingOfItIsLost) {
    TestBus receiver(url(), kReceiver, narrow);
    TestBus sender(url(), kSender, narrow);
    for (std::uint32_t i = 0; i < 4; ++i) ASSERT_EQ(sender.send(kReceiver, {i, 0}), 0U);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(sender.send(kReceiver, {99, 0}), std::uint32_t{VORN_BUS_FULL});
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 990ms);
    EXPECT_EQ(sender.counters().refused_batches, 1U);
    ASSERT_TRUE(receiver.poll_until(4));
    ASSERT_TRUE(eventually([&] { return sender.send(kReceiver, {4, 0}) == 0; }));
    ASSERT_TRUE(receiver.poll_until(5));
    const auto arrived = receiver.arrived();
    ASSERT_EQ(arrived.size(), 5U);
    for (std::uint32_t i = 0; i < 5; ++i) EXPECT_EQ(arrived[i].port().f0, i);
}

TEST_P(Semantics, ASenderWaitsUntilItsBatchFits) {
    const auto patient = [](vorn_bus_options& options) {
        options.queue_batches = 4;
        options.send_timeout_ms = 20000;
    };
    TestBus receiver(url(), kReceiver, patient);
    TestBus sender(url(), kSender, patient);
    std::thread late([&] {
        std::this_thread::sleep_for(100ms);
        receiver.poll_until(12);
    });
    for (std::uint32_t i = 0; i < 12; ++i) EXPECT_EQ(sender.send(kReceiver, {i, 0}), 0U);
    late.join();
    EXPECT_EQ(receiver.arrived().size(), 12U);
}

TEST_P(Semantics, ABatchAboveTheLimitIsRefusedWhole) {
    const auto small = [](vorn_bus_options& options) { options.batch_bytes = 1000; };
    TestBus receiver(url(), kReceiver, small);
    TestBus sender(url(), kSender, small);
    // 32 bytes of header, and 8 + 24 for each message: 30 messages are 992 bytes.
    EXPECT_EQ(sender.send(kReceiver, std::vector<Nac_SetPortMsg>(31)), std::uint32_t{VORN_BUS_TOO_LARGE});
    EXPECT_EQ(sender.send(kReceiver, std::vector<Nac_SetPortMsg>(30)), 0U);
    ASSERT_TRUE(receiver.poll_until(30));
    EXPECT_EQ(receiver.arrived().size(), 30U);
    EXPECT_EQ(sender.counters().refused_batches, 1U);
}

TEST_P(Semantics, ABatchAboveTheReceiversLimitIsRefusedWhole) {
    TestBus receiver(url(), kReceiver, [](vorn_bus_options& options) { options.batch_bytes = 1000; });
    TestBus sender(url(), kSender);
    EXPECT_EQ(sender.send(kReceiver, std::vector<Nac_SetPortMsg>(31)), std::uint32_t{VORN_BUS_TOO_LARGE});
    EXPECT_EQ(sender.send(kReceiver, {1, 2}), 0U);
    EXPECT_TRUE(receiver.poll_until(1));
}

TEST_P(Semantics, ABatchOfTheLargestAreaTravels) {
    TestBus receiver(url(), kReceiver);
    TestBus sender(url(), kSender);
    std::vector<std::uint8_t> text(4000);
    for (std::size_t i = 0; i < text.size(); ++i) text[i] = static_cast<std::uint8_t>(i);
    std::vector<Nac_SetUserTableMsg> batch(12);
    for (auto& record : batch) {
        record.f31_count = static_cast<std::uint32_t>(text.size());
        record.f31 = text.data();
    }
    std::size_t alike = 0;
    receiver.on_message = [&](const vorn_bus_message& message) {
        const auto& table = *static_cast<const Nac_SetUserTableMsg*>(message.record);
        if (std::vector(table.f31, table.f31 + table.f31_count) == text) ++alike;
    };
    vorn_bus_use(sender.get());
    ASSERT_EQ(Nac_SetUserTableMsg__sendmsg(kReceiver, batch.data(), 12), 0U);
    ASSERT_TRUE(receiver.poll_until(12));
    EXPECT_EQ(alike, 12U);
}

TEST_P(Semantics, MessagesOfAnUnknownIdAreCountedAndTheOthersOfTheBatchArrive) {
    TestBus receiver(url(), kReceiver);
    TestBus sender(url(), kSender);
    const std::array<std::uint8_t, 24> port = {12, 0, 0, 0, 8, 0, 12, 0, 4, 0, 8, 0,
                                               8,  0, 0, 0, 7, 0, 0,  0, 1, 0, 0, 0};
    const std::array<VORN_SendDescriptor, 2> descriptors = {
        {{port.data(), 5, 24}, {port.data(), Nac_SetPortMsg_ID, 24}}};
    ASSERT_EQ(vorn_bus_send(sender.get(), kReceiver, descriptors.data(), 2, 0), 0);
    ASSERT_TRUE(receiver.poll_until(1));
    EXPECT_EQ(receiver.arrived().at(0).port().f0, 7U);
    EXPECT_EQ(receiver.counters().unknown_messages, 1U);
    EXPECT_EQ(receiver.counters().received_batches, 1U);
    ASSERT_EQ(receiver.log().size(), 1U);
    EXPECT_NE(receiver.log()[0].find("unknown id 5"), std::string::npos);
}

TEST_P(Semantics, MessagesWithoutAHandlerAreCounted) {
    TestBus receiver(url(), kReceiver);
    TestBus sender(url(), kSender);
    vorn_bus_handle_all(receiver.get(), nullptr, nullptr);
    ASSERT_EQ(sender.send(kReceiver, {1, 2}), 0U);
    ASSERT_TRUE(eventually([&] {
        vorn_bus_poll(receiver.get(), 10, 0, nullptr);
        return receiver.counters().received_batches == 1;
    }));
    EXPECT_EQ(receiver.counters().ignored_messages, 1U);
    EXPECT_EQ(receiver.counters().received_messages, 0U);
}

TEST_P(Semantics, AnIdsOwnHandlerGoesBeforeTheOneForAll) {
    TestBus receiver(url(), kReceiver);
    TestBus sender(url(), kSender);
    std::uint32_t own = 0;
    vorn_bus_handle(
        receiver.get(), Nac_SetPortMsg_ID,
        [](const vorn_bus_message* message, void* seen) {
            *static_cast<std::uint32_t*>(seen) = static_cast<const Nac_SetPortMsg*>(message->record)->f0;
        },
        &own);
    ASSERT_EQ(sender.send(kReceiver, {17, 0}), 0U);
    ASSERT_TRUE(eventually([&] {
        vorn_bus_poll(receiver.get(), 10, 0, nullptr);
        return own == 17;
    }));
    EXPECT_TRUE(receiver.arrived().empty());
    vorn_bus_handle(receiver.get(), Nac_SetPortMsg_ID, nullptr, nullptr);
    ASSERT_EQ(sender.send(kReceiver, {18, 0}), 0U);
    EXPECT_TRUE(receiver.poll_until(1));
}

// A length that no message has: unpack leaves the record as it is, and it is freed all the same.
TEST_P(Semantics, BytesThatAreNoMessageArriveAsAZeroRecord) {
    TestBus receiver(url(), kReceiver);
    TestBus sender(url(), kSender);
    std::uint8_t text[] = {1, 2, 3};
    Nac_SetUserTableMsg before = {};
    before.f0 = 0xFFFFFFFF;
    before.f31_count = 3;
    before.f31 = text;
    vorn_bus_use(sender.get());
    ASSERT_EQ(Nac_SetUserTableMsg__sendmsg(kReceiver, &before, 1), 0U);
    const std::array<std::uint8_t, 3> bytes = {1, 2, 3};
    for (std::uint32_t length = 0; length <= 3; ++length) {
        const VORN_SendDescriptor descriptor = {length == 0 ? nullptr : bytes.data(), Nac_SetUserTableMsg_ID,
                                                length};
        ASSERT_EQ(vorn_bus_send(sender.get(), kReceiver, &descriptor, 1, 0), 0);
    }
    ASSERT_TRUE(receiver.poll_until(5));
    const auto arrived = receiver.arrived();
    for (std::size_t i = 1; i < 5; ++i) {
        EXPECT_EQ(arrived[i].record, std::vector<std::uint8_t>(sizeof(Nac_SetUserTableMsg), 0))
            << i - 1 << " bytes";
        EXPECT_EQ(arrived[i].packed.size(), i - 1);
    }
}

TEST_P(Semantics, ADamagedMessageArrivesAsUnpackLeavesIt) {
    TestBus receiver(url(), kReceiver);
    TestBus sender(url(), kSender);
    const std::array<std::uint8_t, 8> bytes = {0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0};
    const VORN_SendDescriptor descriptor = {bytes.data(), Nac_SetUserTableMsg_ID, 8};
    ASSERT_EQ(vorn_bus_send(sender.get(), kReceiver, &descriptor, 1, 0), 0);
    ASSERT_TRUE(receiver.poll_until(1));
    EXPECT_EQ(receiver.arrived()[0].record, std::vector<std::uint8_t>(sizeof(Nac_SetUserTableMsg), 0));
    EXPECT_EQ(receiver.counters().received_messages, 1U);
}

TEST_P(Semantics, AnAddressBelongsToOneBus) {
    TestBus first(url(), kReceiver);
    TestBus second(url(), kReceiver);
    ASSERT_EQ(first.opened(), VORN_BUS_OK);
    EXPECT_EQ(second.opened(), VORN_BUS_ADDRESS_TAKEN);
    TestBus sender(url(), kSender);
    ASSERT_EQ(sender.send(kReceiver, {1, 0}), 0U);
    EXPECT_TRUE(first.poll_until(1));
    first.close();
    TestBus third(url(), kReceiver);
    EXPECT_EQ(third.opened(), VORN_BUS_OK);
}

TEST_P(Semantics, ToNobodyASendWaitsAndReturnsNoPeer) {
    TestBus sender(url(), kSender, impatient);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(sender.send(9, {1, 2}), std::uint32_t{VORN_BUS_NO_PEER});
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 90ms);
    EXPECT_EQ(sender.counters().refused_batches, 1U);
    EXPECT_EQ(sender.counters().unhandled_batches, 0U);
}

TEST_P(Semantics, ASendWaitsForAPeerThatComes) {
    TestBus sender(url(), kSender, [](vorn_bus_options& options) { options.send_timeout_ms = 20000; });
    std::thread sending([&] { EXPECT_EQ(sender.send(kReceiver, {1, 2}), 0U); });
    std::this_thread::sleep_for(100ms);
    {
        TestBus receiver(url(), kReceiver);
        EXPECT_TRUE(receiver.poll_until(1));
        sending.join();
    }
}

TEST_P(Semantics, AfterARestartOfTheReceiverNothingComesTwice) {
    TestBus sender(url(), kSender, [](vorn_bus_options& options) { options.send_timeout_ms = 20000; });
    std::vector<std::uint32_t> seen;
    std::uint32_t number = 0;
    for (int round = 0; round < 4; ++round) {
        TestBus receiver(url(), kReceiver);
        ASSERT_EQ(receiver.opened(), VORN_BUS_OK);
        for (int i = 0; i < 10; ++i) ASSERT_EQ(sender.send(kReceiver, {number++, 0}), 0U);
        ASSERT_TRUE(receiver.poll_until(10)) << round;
        ASSERT_EQ(vorn_bus_flush(sender.get(), 10000), VORN_BUS_OK);
        for (const Arrived& message : receiver.arrived()) seen.push_back(message.port().f0);
    }
    ASSERT_EQ(seen.size(), 40U);
    for (std::uint32_t i = 0; i < 40; ++i) EXPECT_EQ(seen[i], i);
    EXPECT_EQ(sender.counters().lost_batches, 0U);
}

TEST_P(Semantics, ASenderThatComesAgainBeginsAnew) {
    TestBus receiver(url(), kReceiver);
    for (std::uint32_t round = 0; round < 3; ++round) {
        TestBus sender(url(), kSender);
        ASSERT_EQ(sender.send(kReceiver, {round, 0}), 0U);
        ASSERT_TRUE(receiver.poll_until(round + 1));
    }
    EXPECT_EQ(receiver.arrived().size(), 3U);
    EXPECT_EQ(receiver.counters().redelivered_batches, 0U);
}

TEST_P(Semantics, ABusMaySendToItself) {
    TestBus bus(url(), kSender);
    ASSERT_EQ(bus.send(kSender, {3, 4}), 0U);
    ASSERT_TRUE(bus.poll_until(1));
    EXPECT_EQ(bus.arrived()[0].source, kSender);
}

TEST_P(Semantics, PollingFromAHandlerIsRefused) {
    TestBus bus(url(), kSender);
    std::int32_t result = 0;
    bus.on_message = [&](const vorn_bus_message& /*message*/) {
        result = vorn_bus_poll(bus.get(), 0, 0, nullptr);
    };
    ASSERT_EQ(bus.send(kSender, {3, 4}), 0U);
    ASSERT_TRUE(bus.poll_until(1));
    EXPECT_EQ(result, VORN_BUS_BUSY);
}

TEST_P(Semantics, PollingBesideTheReceivingThreadIsRefused) {
    TestBus bus(url(), kSender);
    ASSERT_EQ(vorn_bus_start(bus.get()), VORN_BUS_OK);
    EXPECT_TRUE(eventually([&] { return vorn_bus_poll(bus.get(), 0, 0, nullptr) == VORN_BUS_BUSY; }));
    ASSERT_EQ(vorn_bus_stop(bus.get()), VORN_BUS_OK);
    EXPECT_EQ(vorn_bus_poll(bus.get(), 0, 0, nullptr), VORN_BUS_OK);
}

TEST_P(Semantics, TheQueueIsTheSmallerOfTheTwo) {
    TestBus receiver(url(), kReceiver, narrow);
    TestBus sender(url(), kSender, [](vorn_bus_options& options) { options.send_timeout_ms = 1000; });
    for (std::uint32_t i = 0; i < 4; ++i) ASSERT_EQ(sender.send(kReceiver, {i, 0}), 0U);
    EXPECT_EQ(sender.send(kReceiver, {99, 0}), std::uint32_t{VORN_BUS_FULL});
    EXPECT_TRUE(receiver.poll_until(4));
}

TEST_P(Semantics, PollHandlesAsManyBatchesAsItIsAskedFor) {
    TestBus sender(url(), kSender);
    TestBus receiver(url(), kReceiver);
    for (std::uint32_t i = 0; i < 5; ++i) ASSERT_EQ(sender.send(kReceiver, {i, 0}), 0U);
    ASSERT_TRUE(eventually([&] { return receiver.counters().waiting_batches == 5; }));
    std::uint32_t handled = 0;
    ASSERT_EQ(vorn_bus_poll(receiver.get(), 0, 2, &handled), 0);
    EXPECT_EQ(handled, 2U);
    EXPECT_EQ(receiver.counters().waiting_batches, 3U);
    ASSERT_EQ(vorn_bus_poll(receiver.get(), 0, 0, &handled), 0);
    EXPECT_EQ(handled, 3U);
    ASSERT_EQ(vorn_bus_poll(receiver.get(), 0, 0, &handled), 0);
    EXPECT_EQ(handled, 0U);
}

TEST_P(Semantics, EachBatchArrivesAtOnceWhileNoneIsHandled) {
    TestBus sender(url(), kSender);
    TestBus receiver(url(), kReceiver);
    for (std::uint32_t i = 1; i <= 8; ++i) {
        ASSERT_EQ(sender.send(kReceiver, {i, 0}), 0U);
        ASSERT_TRUE(eventually([&] { return receiver.counters().waiting_batches == i; })) << i;
    }
}

TEST_P(Semantics, TheDescriptorIsReadableWhileThereIsSomethingToPoll) {
    TestBus sender(url(), kSender);
    TestBus receiver(url(), kReceiver);
    pollfd waiting = {vorn_bus_descriptor(receiver.get()), POLLIN, 0};
    ASSERT_GE(waiting.fd, 0);
    EXPECT_EQ(poll(&waiting, 1, 0), 0);
    for (std::uint32_t i = 0; i < 3; ++i) ASSERT_EQ(sender.send(kReceiver, {i, 0}), 0U);
    ASSERT_TRUE(eventually([&] { return receiver.counters().waiting_batches == 3; }));
    EXPECT_EQ(poll(&waiting, 1, 10000), 1);
    ASSERT_EQ(vorn_bus_poll(receiver.get(), 0, 2, nullptr), 0);
    EXPECT_EQ(poll(&waiting, 1, 0), 1);
    ASSERT_EQ(vorn_bus_poll(receiver.get(), 0, 0, nullptr), 0);
    EXPECT_EQ(poll(&waiting, 1, 0), 0);
    EXPECT_EQ(receiver.arrived().size(), 3U);
}

TEST_P(Semantics, FlushWaitsForWhatIsOnItsWay) {
    if (transport() == "nats") {
        // What is stored is no longer on its way: the receiver need not poll.
        TestBus receiver(url(), kReceiver);
        TestBus sender(url(), kSender);
        ASSERT_EQ(sender.send(kReceiver, {1, 0}), 0U);
        EXPECT_EQ(vorn_bus_flush(sender.get(), 10000), VORN_BUS_OK);
        EXPECT_EQ(sender.counters().unhandled_batches, 0U);
        EXPECT_TRUE(receiver.poll_until(1));
        return;
    }
    TestBus receiver(url(), kReceiver);
    TestBus sender(url(), kSender);
    ASSERT_EQ(sender.send(kReceiver, {1, 0}), 0U);
    EXPECT_EQ(vorn_bus_flush(sender.get(), 50), VORN_BUS_TIMEOUT);
    EXPECT_EQ(sender.counters().unhandled_batches, 1U);
    ASSERT_TRUE(receiver.poll_until(1));
    EXPECT_EQ(vorn_bus_flush(sender.get(), 10000), VORN_BUS_OK);
    EXPECT_EQ(sender.counters().unhandled_batches, 0U);
}

TEST_P(Semantics, WhatAClosedReceiverHadNotHandledGoesToTheNextAndOnLoopIsLostAndReportedOnce) {
    TestBus sender(url(), kSender);
    {
        TestBus receiver(url(), kReceiver);
        for (std::uint32_t i = 0; i < 3; ++i) ASSERT_EQ(sender.send(kReceiver, {i, 0}), 0U);
        ASSERT_TRUE(eventually([&] { return receiver.counters().waiting_batches == 3; }));
        ASSERT_EQ(vorn_bus_poll(receiver.get(), 10000, 1, nullptr), 0);
        ASSERT_EQ(receiver.arrived().size(), 1U);
    }
    TestBus receiver(url(), kReceiver);
    ASSERT_EQ(sender.send(kReceiver, {3, 0}), 0U);
    if (transport() == "loop") {
        ASSERT_TRUE(receiver.poll_until(1));
        EXPECT_EQ(receiver.arrived().at(0).port().f0, 3U);
        EXPECT_EQ(vorn_bus_flush(sender.get(), 10000), VORN_BUS_LOST);
        EXPECT_EQ(sender.counters().lost_batches, 2U);
    } else {
        ASSERT_TRUE(receiver.poll_until(3));
        for (std::uint32_t i = 0; i < 3; ++i) EXPECT_EQ(receiver.arrived().at(i).port().f0, i + 1);
        EXPECT_EQ(sender.counters().lost_batches, 0U);
    }
    EXPECT_EQ(vorn_bus_flush(sender.get(), 10000), VORN_BUS_OK);
}

TEST_P(Semantics, CountersCanBeAskedOfOthers) {
    TestBus sender(url(), kSender);
    TestBus receiver(url(), kReceiver);
    ASSERT_EQ(sender.send(kReceiver, {1, 0}), 0U);
    ASSERT_TRUE(receiver.poll_until(1));
    vorn_bus_counters counters = vorn_bus_counters_init();
    ASSERT_EQ(vorn_bus_ask_counters(url().c_str(), kReceiver, 5000, &counters), VORN_BUS_OK);
    EXPECT_EQ(counters.received_batches, 1U);
    EXPECT_EQ(counters.sent_batches, 0U);
    ASSERT_EQ(vorn_bus_ask_counters(url().c_str(), kSender, 5000, &counters), VORN_BUS_OK);
    EXPECT_EQ(counters.sent_batches, 1U);
    EXPECT_EQ(vorn_bus_ask_counters(url().c_str(), 9, 100, &counters), VORN_BUS_NO_PEER);
}

TEST_P(Semantics, WrongArgumentsAreRefused) {
    TestBus bus(url(), kSender);
    const std::array<std::uint8_t, 4> bytes = {};
    const VORN_SendDescriptor good = {bytes.data(), 1, 4};
    const VORN_SendDescriptor null_bytes = {nullptr, 1, 4};
    EXPECT_EQ(vorn_bus_send(bus.get(), kSender, nullptr, 1, 0), VORN_BUS_BAD_ARGUMENT);
    EXPECT_EQ(vorn_bus_send(bus.get(), kSender, &good, 0, 0), VORN_BUS_BAD_ARGUMENT);
    EXPECT_EQ(vorn_bus_send(bus.get(), kSender, &null_bytes, 1, 0), VORN_BUS_BAD_ARGUMENT);
    EXPECT_EQ(vorn_bus_send(nullptr, kSender, &good, 1, 0), VORN_BUS_BAD_ARGUMENT);
    const VORN_SendDescriptor huge = {bytes.data(), 1, 0xFFFFFFFF};
    const std::array<VORN_SendDescriptor, 2> wrapping = {huge, huge};
    EXPECT_EQ(vorn_bus_send(bus.get(), kSender, wrapping.data(), 2, 0), VORN_BUS_TOO_LARGE);
}

TEST_P(Semantics, TheReceivingThreadStopsAndStartsAgain) {
    TestBus sender(url(), kSender);
    TestBus receiver(url(), kReceiver);
    for (std::uint32_t round = 1; round <= 3; ++round) {
        ASSERT_EQ(vorn_bus_start(receiver.get()), 0);
        EXPECT_EQ(vorn_bus_start(receiver.get()), VORN_BUS_BUSY);
        ASSERT_EQ(sender.send(kReceiver, {round, 0}), 0U);
        ASSERT_TRUE(eventually([&] { return receiver.counters().received_batches == round; }));
        ASSERT_EQ(vorn_bus_stop(receiver.get()), 0);
    }
}

TEST_P(Semantics, TwoBusesTalkBothWaysAtOnce) {
    constexpr std::uint32_t kBatches = 500;
    TestBus left(url(), kSender);
    TestBus right(url(), kReceiver);
    ASSERT_EQ(vorn_bus_start(left.get()), 0);
    ASSERT_EQ(vorn_bus_start(right.get()), 0);
    const std::array<std::uint8_t, 24> port = {12, 0, 0, 0, 8, 0, 12, 0, 4, 0, 8, 0,
                                               8,  0, 0, 0, 7, 0, 0,  0, 1, 0, 0, 0};
    const VORN_SendDescriptor descriptor = {port.data(), Nac_SetPortMsg_ID, 24};
    const auto send_all = [&](vorn_bus* bus, std::uint32_t destination) {
        for (std::uint32_t i = 0; i < kBatches; ++i)
            EXPECT_EQ(vorn_bus_send(bus, destination, &descriptor, 1, 0), 0);
    };
    std::thread other([&] { send_all(left.get(), kReceiver); });
    send_all(right.get(), kSender);
    other.join();
    EXPECT_TRUE(eventually([&] {
        return left.counters().received_batches == kBatches && right.counters().received_batches == kBatches;
    }));
}

int cleans = 0;

TEST(Process, ResourceCleanIsCalledOnceForEachFunctionWhenTheHostAsks) {
    const auto clean = [] { ++cleans; };
    ASSERT_EQ(VORN_RegIDLResorceCleanFuncHook(clean), 0);
    ASSERT_EQ(VORN_RegIDLResorceCleanFuncHook(clean), 0);
    EXPECT_EQ(VORN_RegIDLResorceCleanFuncHook(nullptr), VORN_BUS_BAD_ARGUMENT);
    ASSERT_EQ(nac_fwm_port_send_init(), 0);
    vorn_bus_clean_resources();
    EXPECT_EQ(cleans, 1);
    vorn_bus_clean_resources();
    EXPECT_EQ(cleans, 2);
}

TEST(Process, RegistrationWithoutFunctionsIsRefused) {
    EXPECT_EQ(VORN_RegIDLFuncHook(1, nullptr, [](void*) {}), VORN_BUS_BAD_ARGUMENT);
    EXPECT_EQ(VORN_RegIDLFuncHook(
                  1, [](const std::uint8_t*, std::uint32_t, void*) { return 0U; }, nullptr),
              VORN_BUS_BAD_ARGUMENT);
}

TEST(Process, WithoutAnOpenBusSendsReturnNotOpen) {
    const Nac_SetPortMsg record = {1, 2};
    EXPECT_EQ(Nac_SetPortMsg__sendmsg(1, &record, 1), std::uint32_t{VORN_BUS_NOT_OPEN});
    EXPECT_EQ(Nac_SetPortMsg__sendtomsg(1, &record, 1, 3), std::uint32_t{VORN_BUS_NOT_OPEN});
}

TEST(Process, TheFirstOpenBusIsThatOfTheLibraryUntilAnotherIsChosen) {
    TestBus first("loop:process", 1);
    TestBus second("loop:process", 2);
    const Nac_SetPortMsg record = {1, 2};
    ASSERT_EQ(Nac_SetPortMsg__sendmsg(1, &record, 1), 0U);
    EXPECT_EQ(first.counters().sent_batches, 1U);
    vorn_bus_use(second.get());
    ASSERT_EQ(Nac_SetPortMsg__sendmsg(1, &record, 1), 0U);
    EXPECT_EQ(second.counters().sent_batches, 1U);
    second.close();
    ASSERT_EQ(Nac_SetPortMsg__sendmsg(1, &record, 1), 0U);
    EXPECT_EQ(first.counters().sent_batches, 2U);
}

TEST(Process, WrongOptionsAreRefused) {
    vorn_bus* bus = nullptr;
    vorn_bus_options options = vorn_bus_options_init();
    EXPECT_EQ(vorn_bus_open(nullptr, &bus), VORN_BUS_BAD_ARGUMENT);
    EXPECT_EQ(vorn_bus_open(&options, nullptr), VORN_BUS_BAD_ARGUMENT);
    options.batch_bytes = 10;
    EXPECT_EQ(vorn_bus_open(&options, &bus), VORN_BUS_BAD_ARGUMENT);
    options.batch_bytes = 65U << 20;
    EXPECT_EQ(vorn_bus_open(&options, &bus), VORN_BUS_BAD_ARGUMENT);
}

TEST(Process, EveryResultHasItsWords) {
    constexpr std::int32_t kNoResult = 10;
    std::map<std::string, int> words;
    std::map<std::string, int> names;
    for (std::int32_t result = -1; result <= VORN_BUS_HANDLER_FAILED; ++result) {
        if (result == kNoResult) continue;
        ++words[vorn_bus_result_text(result)];
        ++names[vorn_bus_result_name(result)];
    }
    EXPECT_EQ(words.size(), std::size_t{VORN_BUS_HANDLER_FAILED} + 1);
    EXPECT_EQ(names.size(), words.size());
    EXPECT_STREQ(vorn_bus_result_name(VORN_BUS_NO_PEER), "VORN_BUS_NO_PEER");
    EXPECT_STREQ(vorn_bus_result_text(-1),
                 "refused by the library before the bus was called: a null pointer, no records, too many "
                 "bytes or no memory");
    EXPECT_STREQ(vorn_bus_result_name(-1), "VORN_REFUSED");
    EXPECT_EQ(words.count(vorn_bus_result_text(VORN_BUS_HANDLER_FAILED + 1)), 0U);
    EXPECT_EQ(words.count(vorn_bus_result_text(-2)), 0U);
}

}  // namespace
