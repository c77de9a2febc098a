// SPDX-License-Identifier: Apache-2.0
// What watchers see, on every transport.
#include <algorithm>
#include <array>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "tests/bus/fixture.h"

namespace {

using namespace tests;

constexpr std::uint32_t kSender = 1;
constexpr std::uint32_t kReceiver = 2;

// Addresses 1 and 2, named.
const std::vector<std::uint32_t> kBoth = {kSender, kReceiver};

class Watches : public BusTest {};

INSTANTIATE_TEST_SUITE_P(On, Watches, testing::ValuesIn(transports()),
                         [](const auto& of) { return of.param; });

std::uint64_t now_in_nanoseconds() {
    return static_cast<std::uint64_t>(
        std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count());
}

TEST_P(Watches, AWatchSeesWhatAnotherTakesAndWhatThatIs) {
    TestBus sender(url(), kSender);
    TestBus receiver(url(), kReceiver);
    TestWatch watch(url(), kBoth);
    ASSERT_EQ(watch.opened(), VORN_BUS_OK);
    ASSERT_TRUE(watch.wait_for_receivers(2));
    const std::uint64_t before = now_in_nanoseconds();
    ASSERT_EQ(sender.send(kReceiver, {24, 1}, 0x1122334455667788), 0U);
    ASSERT_EQ(sender.send(kReceiver, {{1, 2}, {3, 4}, {5, 6}}), 0U);
    ASSERT_TRUE(receiver.poll_until(4));
    ASSERT_TRUE(watch.poll_until(4));
    const auto arrived = receiver.arrived();
    ASSERT_EQ(watch.seen().size(), 4U);
    for (std::size_t i = 0; i < 4; ++i) {
        const vorn_bus_watched& message = watch.seen()[i].message;
        EXPECT_EQ(message.message_id, Nac_SetPortMsg_ID);
        EXPECT_EQ(message.source, kSender);
        EXPECT_EQ(message.destination, kReceiver);
        EXPECT_EQ(message.target, i == 0 ? 0x1122334455667788U : 0U);
        EXPECT_EQ(message.position, i == 0 ? 0 : i - 1);
        EXPECT_EQ(message.count, i == 0 ? 1U : 3U);
        EXPECT_GE(message.time, before);
        EXPECT_LE(message.time, now_in_nanoseconds());
        EXPECT_EQ(watch.seen()[i].packed, arrived[i].packed);
    }
    const vorn_bus_watch_counters counters = watch.counters();
    EXPECT_EQ(counters.batches, 2U);
    EXPECT_EQ(counters.messages, 4U);
    EXPECT_EQ(counters.lost_batches + counters.damaged + counters.interruptions, 0U);
}

TEST_P(Watches, AWatchOfAnAddressSeesNoOther) {
    TestBus first(url(), kSender);
    TestBus second(url(), kReceiver);
    TestWatch watch(url(), {kReceiver});
    ASSERT_TRUE(watch.wait_for_receivers(1));
    for (std::uint32_t i = 0; i < 10; ++i) {
        ASSERT_EQ(first.send(kReceiver, {i, 0}), 0U);
        ASSERT_EQ(second.send(kSender, {100 + i, 0}), 0U);
    }
    ASSERT_TRUE(first.poll_until(10));
    ASSERT_TRUE(second.poll_until(10));
    ASSERT_TRUE(watch.poll_until(10));
    EXPECT_EQ(watch.seen().size(), 10U);
    for (const Seen& seen : watch.seen()) EXPECT_EQ(seen.message.destination, kReceiver);
}

TEST_P(Watches, WatchesSeeReceiversThatOpenLater) {
    TestWatch watch(url());
    ASSERT_EQ(watch.opened(), VORN_BUS_OK);
    TestBus sender(url(), kSender);
    TestBus receiver(url(), kReceiver);
    ASSERT_TRUE(watch.wait_for_receivers(2));
    ASSERT_EQ(sender.send(kReceiver, {7, 0}), 0U);
    ASSERT_TRUE(receiver.poll_until(1));
    EXPECT_TRUE(watch.poll_until(1));
}

TEST_P(Watches, AllBatchesAreWatchedInTheirOrderAndNoneTwice) {
    constexpr std::uint32_t kBatches = 3000;
    TestBus sender(url(), kSender);
    TestBus receiver(url(), kReceiver);
    TestWatch one(url(), kBoth);
    TestWatch other(url(), kBoth);
    ASSERT_TRUE(one.wait_for_receivers(2));
    ASSERT_TRUE(other.wait_for_receivers(2));
    ASSERT_EQ(vorn_bus_start(receiver.get()), 0);
    std::thread sending([&] {
        for (std::uint32_t i = 0; i < kBatches; ++i) EXPECT_EQ(sender.send(kReceiver, {i, 0}), 0U);
    });
    EXPECT_TRUE(one.poll_until(kBatches));
    EXPECT_TRUE(other.poll_until(kBatches));
    sending.join();
    for (TestWatch* const watch : {&one, &other}) {
        ASSERT_EQ(watch->seen().size(), kBatches) << watch->counters().lost_batches << " lost, "
                                                  << receiver.counters().received_batches << " received";
        for (std::uint32_t i = 0; i < kBatches; ++i) {
            const std::vector<std::uint8_t>& packed = watch->seen()[i].packed;
            ASSERT_EQ(packed.size(), 24U);
            ASSERT_EQ(packed[8] + 256U * packed[9], i);  // f0 of the image
        }
    }
    ASSERT_TRUE(eventually([&] { return receiver.counters().received_batches == kBatches; }));
    EXPECT_EQ(receiver.counters().redelivered_batches, 0U);
}

TEST_P(Watches, ASlowWatchDelaysNobodyAndCountsWhatItMisses) {
    constexpr std::uint32_t kBatches = 2000;
    TestBus sender(url(), kSender);
    TestBus receiver(url(), kReceiver);
    TestWatch watch(url(), kBoth, 10000);
    ASSERT_TRUE(watch.wait_for_receivers(2));
    ASSERT_EQ(vorn_bus_start(receiver.get()), 0);
    for (std::uint32_t i = 0; i < kBatches; ++i) ASSERT_EQ(sender.send(kReceiver, {i, 0}), 0U);
    ASSERT_TRUE(eventually([&] { return receiver.counters().received_batches == kBatches; }));
    EXPECT_EQ(receiver.arrived().size(), kBatches);
    ASSERT_TRUE(eventually([&] {
        watch.poll_until(0);
        return watch.counters().batches + watch.counters().lost_batches == kBatches;
    }));
    EXPECT_GT(watch.counters().lost_batches, 0U);
    EXPECT_EQ(watch.seen().size(), watch.counters().batches);
    // And sees the next.
    const std::size_t before = watch.seen().size();
    ASSERT_EQ(sender.send(kReceiver, {1, 0}), 0U);
    EXPECT_TRUE(watch.poll_until(before + 1));
}

TEST_P(Watches, AWatchThatEndsIsForgotten) {
    TestBus sender(url(), kSender);
    TestBus receiver(url(), kReceiver);
    for (std::uint32_t round = 1; round <= 3; ++round) {
        TestWatch watch(url(), kBoth);
        ASSERT_TRUE(watch.wait_for_receivers(2));
        ASSERT_EQ(sender.send(kReceiver, {round, 0}), 0U);
        ASSERT_TRUE(receiver.poll_until(round));
        EXPECT_TRUE(watch.poll_until(1));
        EXPECT_EQ(watch.seen().size(), 1U);
    }
    ASSERT_EQ(sender.send(kReceiver, {9, 0}), 0U);
    EXPECT_TRUE(receiver.poll_until(4));
    EXPECT_EQ(receiver.counters().damaged, 0U);
    EXPECT_TRUE(receiver.log().empty());
}

TEST_P(Watches, AWatchSeesTheReceiverThatComesAfterAnother) {
    TestBus sender(url(), kSender, [](vorn_bus_options& options) { options.send_timeout_ms = 20000; });
    TestWatch watch(url(), {kReceiver});
    ASSERT_EQ(watch.opened(), VORN_BUS_OK);
    for (std::uint32_t round = 1; round <= 3; ++round) {
        TestBus receiver(url(), kReceiver);
        ASSERT_EQ(receiver.opened(), VORN_BUS_OK);
        ASSERT_TRUE(eventually([&] {
            return watch.counters().interruptions + 1 == round || transport() == "loop" ||
                   transport() == "nats";
        }));
        ASSERT_TRUE(watch.wait_for_receivers(1));
        ASSERT_EQ(sender.send(kReceiver, {round, 0}), 0U);
        ASSERT_TRUE(receiver.poll_until(1));
        ASSERT_TRUE(watch.poll_until(round));
    }
    EXPECT_EQ(watch.seen().size(), 3U);
}

TEST_P(Watches, DamagedAndUnknownMessagesAreWatchedAsTheyAre) {
    TestBus sender(url(), kSender);
    TestBus receiver(url(), kReceiver);
    TestWatch watch(url(), kBoth);
    ASSERT_TRUE(watch.wait_for_receivers(2));
    const std::array<std::uint8_t, 3> bytes = {1, 2, 3};
    const std::array<VORN_SendDescriptor, 3> descriptors = {
        {{bytes.data(), 5, 3}, {nullptr, Nac_SetPortMsg_ID, 0}, {bytes.data(), Nac_SetPortMsg_ID, 3}}};
    ASSERT_EQ(vorn_bus_send(sender.get(), kReceiver, descriptors.data(), 3, 0), 0);
    ASSERT_TRUE(receiver.poll_until(2));
    ASSERT_TRUE(watch.poll_until(3));
    EXPECT_EQ(watch.seen()[0].message.message_id, 5U);
    EXPECT_EQ(watch.seen()[0].packed, (std::vector<std::uint8_t>{1, 2, 3}));
    EXPECT_TRUE(watch.seen()[1].packed.empty());
    EXPECT_EQ(watch.seen()[2].message.message_id, Nac_SetPortMsg_ID);
}

TEST_P(Watches, APollOfAWatchHandlesAsManyBatchesAsItIsAskedFor) {
    TestBus sender(url(), kSender);
    TestBus receiver(url(), kReceiver);
    TestWatch watch(url(), kBoth);
    ASSERT_TRUE(watch.wait_for_receivers(2));
    for (std::uint32_t i = 0; i < 5; ++i) ASSERT_EQ(sender.send(kReceiver, {i, 0}), 0U);
    ASSERT_TRUE(receiver.poll_until(5));
    const auto none = [](const vorn_bus_watched* /*message*/, void* /*context*/) {};
    std::uint32_t all = 0;
    ASSERT_TRUE(eventually([&] {
        std::uint32_t handled = 0;
        EXPECT_EQ(vorn_bus_watch_poll(watch.get(), 100, 1, none, nullptr, &handled), VORN_BUS_OK);
        EXPECT_LE(handled, 1U);
        all += handled;
        return all == 5;
    }));
    std::uint32_t handled = 1;
    EXPECT_EQ(vorn_bus_watch_poll(watch.get(), 0, 0, none, nullptr, &handled), VORN_BUS_OK);
    EXPECT_EQ(handled, 0U);
    EXPECT_EQ(vorn_bus_watch_poll(watch.get(), 0, 0, nullptr, nullptr, &handled), VORN_BUS_BAD_ARGUMENT);
    EXPECT_EQ(vorn_bus_watch_poll(nullptr, 0, 0, none, nullptr, &handled), VORN_BUS_BAD_ARGUMENT);
}

TEST(Watch, WrongOptionsAreRefused) {
    vorn_bus_watch* watch = nullptr;
    vorn_bus_watch_options options = vorn_bus_watch_options_init();
    EXPECT_EQ(vorn_bus_watch_open(nullptr, &watch), VORN_BUS_BAD_ARGUMENT);
    EXPECT_EQ(vorn_bus_watch_open(&options, nullptr), VORN_BUS_BAD_ARGUMENT);
    options.url = "nonsense";
    EXPECT_EQ(vorn_bus_watch_open(&options, &watch), VORN_BUS_BAD_URL);
    options.url = "loop:";
    options.address_count = 1;
    EXPECT_EQ(vorn_bus_watch_open(&options, &watch), VORN_BUS_BAD_ARGUMENT);
    EXPECT_EQ(watch, nullptr);
    vorn_bus_watch_close(nullptr);
}

}  // namespace
