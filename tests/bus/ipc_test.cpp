// SPDX-License-Identifier: Apache-2.0
// ipc as another speaker of its protocol sees it; pure senders, drains, waking, signals.
#include <signal.h>

#include <filesystem>
#include <string>
#include <thread>

#include "tests/bus/ipc_speaker.h"

namespace {

using namespace tests;

INSTANTIATE_TEST_SUITE_P(On, Ipc, testing::Values("ipc"), [](const auto& of) { return of.param; });

TEST_P(Ipc, AnotherSpeakerOfTheProtocolIsUnderstood) {
    TestBus receiver(url(), kReceiver, [](vorn_bus_options& options) { options.queue_batches = 9; });
    Speaker speaker(url());
    const Welcome welcome = speaker.greet();
    EXPECT_EQ(welcome.address, kReceiver);
    EXPECT_EQ(welcome.batches, 9U);
    EXPECT_EQ(welcome.batch_bytes, 1'000'000U);
    speaker.make_ring();
    speaker.say_hello(speaker.hello());
    speaker.send();
    speaker.send();
    ASSERT_TRUE(receiver.poll_until(2));
    EXPECT_EQ(receiver.arrived()[1].port().f0, 7U);
    EXPECT_EQ(receiver.arrived()[1].source, kSender);
    EXPECT_TRUE(speaker.writer.note_handled());
    EXPECT_EQ(speaker.writer.waiting(), 0U);
}

TEST_P(Ipc, WhatASenderLeavesWhenItEndsIsHandled) {
    TestBus receiver(url(), kReceiver);
    {
        Speaker speaker(url());
        speaker.join();
        speaker.send();
        speaker.send();
    }
    EXPECT_TRUE(receiver.poll_until(2));
    expect_alive(receiver);
}

TEST_P(Ipc, WhatMayHaveBeenHandledBeforeIsFlagged) {
    TestBus receiver(url(), kReceiver);
    Speaker speaker(url());
    speaker.greet();
    speaker.make_ring();
    Hello hello = speaker.hello();
    hello.is_repeated = 1;
    speaker.say_hello(hello);
    speaker.send();
    speaker.send();
    ASSERT_TRUE(receiver.poll_until(2));
    EXPECT_EQ(receiver.arrived()[0].flags & VORN_BUS_REPEATED, VORN_BUS_REPEATED);
    EXPECT_EQ(receiver.arrived()[1].flags & VORN_BUS_REPEATED, 0U);
}

// ---- pure senders, drains, waking ------------------------------------------------------------------------

TEST_P(Ipc, PureSendersTakeNoAddressAndMayBeMany) {
    TestBus receiver(url(), kReceiver);
    const auto pure = [](vorn_bus_options& options) { options.send_only = 1; };
    TestBus first(url(), 0, pure);
    TestBus second(url(), 0, pure);
    ASSERT_EQ(first.opened(), VORN_BUS_OK);
    ASSERT_EQ(second.opened(), VORN_BUS_OK);
    EXPECT_EQ(first.send(kReceiver, {1, 0}), 0U);
    EXPECT_EQ(second.send(kReceiver, {2, 0}), 0U);
    EXPECT_TRUE(receiver.poll_until(2));
    EXPECT_STREQ(vorn_bus_endpoint(first.get()), "");
    EXPECT_FALSE(std::filesystem::exists(url().substr(6) + "/0.sock"));
    EXPECT_EQ(vorn_bus_flush(first.get(), 10000), VORN_BUS_OK);
}

TEST_P(Ipc, ADrainHandlesWhatSendersLeftThatHaveEndedAndGivesTheRestBack) {
    TestBus staying(url(), kSender);
    TestBus receiver(url(), kReceiver);
    {
        TestBus ended(url(), 3, [](vorn_bus_options& options) { options.linger_ms = -1; });
        ASSERT_EQ(ended.send(kReceiver, {1, 0}), 0U);
    }
    ASSERT_EQ(staying.send(kReceiver, {2, 0}), 0U);
    EXPECT_EQ(vorn_bus_drain(receiver.get(), 10000), VORN_BUS_OK);
    ASSERT_EQ(receiver.arrived().size(), 1U);
    EXPECT_EQ(receiver.arrived()[0].port().f0, 1U);
    receiver.close();
    TestBus next(url(), kReceiver);
    ASSERT_TRUE(next.poll_until(1));
    EXPECT_EQ(next.arrived()[0].port().f0, 2U);
    EXPECT_EQ(next.arrived()[0].flags & VORN_BUS_REPEATED, 0U);
}

TEST_P(Ipc, WhatSendersLeftThatHaveEndedIsLostByACloseWithoutADrainAndLogged) {
    TestBus receiver(url(), kReceiver);
    {
        TestBus ended(url(), 3, [](vorn_bus_options& options) { options.linger_ms = -1; });
        ASSERT_EQ(ended.send(kReceiver, {1, 0}), 0U);
        ASSERT_EQ(ended.send(kReceiver, {2, 0}), 0U);
    }
    receiver.close();
    ASSERT_EQ(receiver.log().size(), 1U);
    EXPECT_NE(receiver.log()[0].find("2 batches of senders that have ended are lost"), std::string::npos);
}

// Of a sender that goes on while the poll handles.
TEST_P(Ipc, APollHandlesWhatIsThereAndNotWhatComesMeanwhile) {
    TestBus receiver(url(), kReceiver);
    TestBus sender(url(), kSender);
    receiver.on_message = [&](const vorn_bus_message&) { sender.send(kReceiver, {9, 9}); };
    for (std::uint32_t i = 0; i < 3; ++i) ASSERT_EQ(sender.send(kReceiver, {i, 0}), 0U);
    std::uint32_t handled = 0;
    ASSERT_EQ(vorn_bus_poll(receiver.get(), 10000, 0, &handled), VORN_BUS_OK);
    EXPECT_EQ(handled, 3U);
    ASSERT_EQ(vorn_bus_poll(receiver.get(), 10000, 0, &handled), VORN_BUS_OK);
    EXPECT_EQ(handled, 3U);
    receiver.on_message = nullptr;
    while (handled != 0) vorn_bus_poll(receiver.get(), 0, 0, &handled);
}

TEST_P(Ipc, AWakeEndsAPollThatWaits) {
    TestBus receiver(url(), kReceiver);
    std::thread waking([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_EQ(vorn_bus_wake(receiver.get()), VORN_BUS_OK);
    });
    std::uint32_t handled = 9;
    EXPECT_EQ(vorn_bus_poll(receiver.get(), -1, 0, &handled), VORN_BUS_OK);
    EXPECT_EQ(handled, 0U);
    waking.join();
}

TEST_P(Ipc, SignalsAreLeftToTheHostsThreads) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
    TestBus receiver(url(), kReceiver);
    TestBus sender(url(), 1);
    ASSERT_EQ(vorn_bus_start(receiver.get()), VORN_BUS_OK);
    {
        const BlockedSignals blocked;  // so that the system gives them to another thread, if there is one
        for (std::uint32_t i = 0; i < 200; ++i) {
            kill(getpid(), SIGUSR1);
            ASSERT_EQ(sender.send(kReceiver, {i, 0}), 0U);
        }
    }
    EXPECT_TRUE(eventually([&] { return receiver.arrived().size() == 200; }));
}

}  // namespace
