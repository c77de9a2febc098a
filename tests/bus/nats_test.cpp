// SPDX-License-Identifier: Apache-2.0
// nats:// where its server matters: kills and restarts of it, what a killed receiver leaves, receivers that
// are cut off, what others store.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

#include "tests/bus/fixture.h"
#include "tests/bus/nats_server.h"

namespace {

using namespace tests;
using namespace std::chrono_literals;

constexpr std::uint32_t kSender = 1;
constexpr std::uint32_t kReceiver = 2;

void patient(vorn_bus_options& options) { options.send_timeout_ms = 30000; }

class Nats : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(nac_fwm_port_recv_init(), 0); }
};

TEST_F(Nats, ASendWaitsForTheServerToComeBackAndNothingIsDoubled) {
    NatsServer server;
    TestBus receiver(url_of(server), kReceiver, patient);
    TestBus sender(url_of(server), kSender, patient);
    std::uint32_t sent = 0;
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < 20; ++i) ASSERT_EQ(sender.send(kReceiver, {sent++, 0}), 0U);
        server.kill();
        // The server belongs to the thread that starts it.
        std::thread sending([&] {
            for (int i = 0; i < 20; ++i) EXPECT_EQ(sender.send(kReceiver, {sent++, 0}), 0U);
        });
        std::this_thread::sleep_for(300ms);
        server.start();
        sending.join();
    }
    ASSERT_TRUE(receiver.poll_until(sent));
    const auto arrived = receiver.arrived();
    ASSERT_EQ(arrived.size(), sent);
    for (std::uint32_t i = 0; i < sent; ++i) ASSERT_EQ(arrived[i].port().f0, i);
}

TEST_F(Nats, WhileTheServerIsAwayASendEndsInTime) {
    NatsServer server;
    TestBus receiver(url_of(server), kReceiver);
    TestBus sender(url_of(server), kSender,
                   [](vorn_bus_options& options) { options.send_timeout_ms = 1000; });
    ASSERT_EQ(sender.send(kReceiver, {1, 0}), 0U);
    ASSERT_EQ(vorn_bus_flush(sender.get(), 10000), VORN_BUS_OK);
    server.kill();
    // A send before the client has noticed is accepted, and waits for the server.
    ASSERT_TRUE(eventually([&] { return !sender.log().empty(); }));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(sender.send(kReceiver, {2, 0}), std::uint32_t{VORN_BUS_NO_PEER});
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 3s);
    const vorn_bus_counters counters = sender.counters();
    EXPECT_EQ(counters.sent_batches, 1U);
    EXPECT_EQ(counters.refused_batches, 1U);
    server.start();
}

TEST_F(Nats, WhileTheServerIsAwayABusCloses) {
    NatsServer server;
    TestBus bus(url_of(server), kReceiver);
    ASSERT_EQ(bus.opened(), VORN_BUS_OK);
    server.kill();
    const auto begin = std::chrono::steady_clock::now();
    bus.close();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 6s);
    server.start();
}

TEST_F(Nats, WhatIsSentWhileTheReceiverIsAwayWaitsForIt) {
    NatsServer server;
    TestBus sender(url_of(server), kSender);
    { TestBus receiver(url_of(server), kReceiver); }
    for (std::uint32_t i = 0; i < 5; ++i) ASSERT_EQ(sender.send(kReceiver, {i, 0}), 0U);
    TestBus receiver(url_of(server), kReceiver);
    ASSERT_TRUE(receiver.poll_until(5));
    for (std::uint32_t i = 0; i < 5; ++i) EXPECT_EQ(receiver.arrived()[i].port().f0, i);
}

// A receiver that is killed in its third handler: the next one begins with that batch, marked as repeated.
TEST_F(Nats, TheBatchInWhichAReceiverWasKilledComesAgainWithAMark) {
    NatsServer server;
    std::array<int, 2> pipes = {};
    ASSERT_EQ(pipe2(pipes.data(), O_CLOEXEC), 0);
    const pid_t child = fork();
    if (child == 0) {
        TestBus receiver(url_of(server), kReceiver);
        static_cast<void>(!write(pipes[1], "o", 1));
        receiver.on_message = [](const vorn_bus_message& message) {
            if (static_cast<const Nac_SetPortMsg*>(message.record)->f0 == 2) raise(SIGKILL);
        };
        receiver.poll_until(100);
        _exit(1);
    }
    char opened = 0;
    ASSERT_EQ(read(pipes[0], &opened, 1), 1);
    TestBus sender(url_of(server), kSender, patient);
    for (std::uint32_t i = 0; i < 5; ++i) ASSERT_EQ(sender.send(kReceiver, {i, 0}), 0U);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    TestBus receiver(url_of(server), kReceiver);
    ASSERT_EQ(receiver.opened(), VORN_BUS_OK);
    ASSERT_TRUE(receiver.poll_until(3));
    const auto arrived = receiver.arrived();
    EXPECT_EQ(arrived[0].port().f0, 2U);
    EXPECT_EQ(arrived[0].flags, VORN_BUS_REPEATED);
    EXPECT_EQ(arrived[1].port().f0, 3U);
    EXPECT_EQ(arrived[1].flags, 0U);
    EXPECT_EQ(arrived[2].port().f0, 4U);
}

TEST_F(Nats, ASecondProcessAtAnAddressChangesNothingOfTheFirst) {
    NatsServer server;
    TestBus receiver(url_of(server), kReceiver);
    for (const char* const state : {"/state", "/another"}) {  // on this machine, and as on another one
        const std::string url =
            "nats://127.0.0.1:" + std::to_string(server.port()) + "?state=" + server.folder() + state;
        TestBus second(url, kReceiver, [](vorn_bus_options& options) { options.batch_bytes = 100; });
        EXPECT_EQ(second.opened(), VORN_BUS_ADDRESS_TAKEN);
    }
    TestBus sender(url_of(server), kSender);
    EXPECT_EQ(sender.send(kReceiver, std::vector<Nac_SetPortMsg>(20, {1, 2})), 0U);  // of more than 100 bytes
    EXPECT_TRUE(receiver.poll_until(20));
}

// A receiver that is stopped, and another one in its stead on another machine: the first handles nothing
// more.
TEST_F(Nats, AReceiverThatWasCutOffIsFenced) {
    NatsServer server;
    std::array<int, 2> pipes = {};
    ASSERT_EQ(pipe2(pipes.data(), O_CLOEXEC), 0);
    const pid_t child = fork();
    if (child == 0) {
        TestBus receiver(url_of(server), kReceiver);
        receiver.on_message = [&](const vorn_bus_message& message) {
            const auto number =
                static_cast<std::uint8_t>(static_cast<const Nac_SetPortMsg*>(message.record)->f0);
            static_cast<void>(!write(pipes[1], &number, 1));
            if (number == 0) raise(SIGSTOP);  // its machine sleeps, with batches in hand
        };
        static_cast<void>(!write(pipes[1], "o", 1));
        receiver.poll_until(100);
        _exit(0);
    }
    std::uint8_t said = 0;
    ASSERT_EQ(read(pipes[0], &said, 1), 1);
    TestBus sender(url_of(server), kSender, patient);
    for (std::uint32_t i = 0; i < 5; ++i) ASSERT_EQ(sender.send(kReceiver, {i, 0}), 0U);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, WUNTRACED), child);
    ASSERT_EQ(vorn_bus_flush(sender.get(), 10000), VORN_BUS_OK);
    std::this_thread::sleep_for(1s);  // it writes what it has delivered
    server.kill();                    // it forgets who was connected
    server.start();
    const std::string elsewhere =
        "nats://127.0.0.1:" + std::to_string(server.port()) + "?state=" + server.folder() + "/another";
    TestBus receiver(elsewhere, kReceiver);
    ASSERT_EQ(receiver.opened(), VORN_BUS_OK);
    ASSERT_TRUE(receiver.poll_until(5));
    kill(child, SIGCONT);
    for (std::uint32_t i = 5; i < 10; ++i) ASSERT_EQ(sender.send(kReceiver, {i, 0}), 0U);
    ASSERT_TRUE(receiver.poll_until(10));
    const auto arrived = receiver.arrived();
    for (std::uint32_t i = 0; i < 10; ++i) {
        EXPECT_EQ(arrived[i].port().f0, i);
        EXPECT_EQ(arrived[i].flags, i < 5 ? VORN_BUS_REPEATED : 0U) << i;  // the first had been given five
    }
    EXPECT_EQ(receiver.log().size(), 1U);  // why it waits
    std::this_thread::sleep_for(1s);
    kill(child, SIGKILL);
    ASSERT_EQ(waitpid(child, &status, 0), child);
    close(pipes[1]);
    ASSERT_EQ(read(pipes[0], &said, 1), 1);
    EXPECT_EQ(said, 0U);
    EXPECT_EQ(read(pipes[0], &said, 1), 0) << "it has handled " << int{said} << " too";
    close(pipes[0]);
}

// What was handled and what was not, only the journal knows.
TEST_F(Nats, WithoutItsJournalAReceiverMarksWhatWasDelivered) {
    NatsServer server;
    TestBus sender(url_of(server), kSender);
    {
        TestBus receiver(url_of(server), kReceiver);
        for (std::uint32_t i = 0; i < 5; ++i) ASSERT_EQ(sender.send(kReceiver, {i, 0}), 0U);
        ASSERT_EQ(vorn_bus_flush(sender.get(), 10000), VORN_BUS_OK);
        ASSERT_TRUE(eventually([&] { return receiver.counters().waiting_batches == 5; }));
    }
    std::filesystem::remove(server.folder() + "/state/vorn-2.handled");
    TestBus receiver(url_of(server), kReceiver);
    ASSERT_EQ(sender.send(kReceiver, {5, 0}), 0U);
    ASSERT_TRUE(receiver.poll_until(6));
    for (std::uint32_t i = 0; i < 6; ++i) {
        EXPECT_EQ(receiver.arrived()[i].port().f0, i);
        EXPECT_EQ(receiver.arrived()[i].flags, i < 5 ? VORN_BUS_REPEATED : 0U) << i;
    }
}

// Nobody can take it any more: it is lost, and a void in its stead lets the next ones arrive.
TEST_F(Nats, ABatchForWhichItsNextReceiverIsTooSmallIsLostAlone) {
    NatsServer server;
    TestBus sender(url_of(server), kSender);
    const std::vector<Nac_SetPortMsg> many(2000, {1, 2});
    {
        TestBus receiver(url_of(server), kReceiver);
        ASSERT_EQ(sender.send(kReceiver, many), 0U);
        ASSERT_TRUE(receiver.poll_until(many.size()));
    }
    TestBus receiver(url_of(server), kReceiver, [](vorn_bus_options& options) { options.batch_bytes = 100; });
    ASSERT_EQ(receiver.opened(), VORN_BUS_OK);
    ASSERT_EQ(sender.send(kReceiver, many), 0U);  // by the limits of before
    ASSERT_EQ(sender.send(kReceiver, {3, 4}), 0U);
    EXPECT_EQ(vorn_bus_flush(sender.get(), 10000), VORN_BUS_LOST);
    EXPECT_EQ(sender.counters().lost_batches, 1U);
    ASSERT_EQ(sender.log().size(), 1U);
    EXPECT_EQ(
        sender.log()[0],
        "vorn 1: warning: 1 batches to vorn.batches.2 are lost: the server takes no message of their size");
    ASSERT_TRUE(receiver.poll_until(1));
    EXPECT_EQ(receiver.arrived()[0].port().f0, 3U);
}

// It takes no address: so two of one number do not disturb each other, and nobody sends to them.
TEST_F(Nats, SendersWithoutAnAddressNeedNoStream) {
    NatsServer server;
    TestBus receiver(url_of(server), kReceiver);
    const auto only_sends = [](vorn_bus_options& options) { options.send_only = 1; };
    TestBus first(url_of(server), kSender, only_sends);
    TestBus second(url_of(server), kSender, only_sends);
    ASSERT_EQ(first.opened(), VORN_BUS_OK);
    ASSERT_EQ(second.opened(), VORN_BUS_OK);
    ASSERT_EQ(first.send(kReceiver, {1, 0}), 0U);
    ASSERT_EQ(second.send(kReceiver, {2, 0}), 0U);
    ASSERT_TRUE(receiver.poll_until(2));
    EXPECT_EQ(receiver.arrived()[0].source, kSender);
    EXPECT_EQ(first.send(kSender, {1, 0}), std::uint32_t{VORN_BUS_NO_PEER});
    EXPECT_FALSE(std::filesystem::exists(server.folder() + "/state/vorn-1.handled"));
}

TEST_F(Nats, AStreamThatIsMadeAnewIsReadFromItsBeginning) {
    std::string url;
    NatsServer first;
    url = "?state=" + first.folder() + "/state";
    const auto at = [&](const NatsServer& server) {
        return "nats://127.0.0.1:" + std::to_string(server.port()) + url;
    };
    {
        TestBus receiver(at(first), kReceiver);
        TestBus sender(at(first), kSender);
        for (std::uint32_t i = 0; i < 10; ++i) ASSERT_EQ(sender.send(kReceiver, {i, 0}), 0U);
        ASSERT_TRUE(receiver.poll_until(10));
    }
    NatsServer second;  // with an empty store, and the same state folder
    TestBus receiver(at(second), kReceiver);
    TestBus sender(at(second), kSender);
    ASSERT_EQ(sender.send(kReceiver, {77, 0}), 0U);
    ASSERT_TRUE(receiver.poll_until(1));
    EXPECT_EQ(receiver.arrived()[0].port().f0, 77U);
}

}  // namespace
