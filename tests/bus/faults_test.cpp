// SPDX-License-Identifier: Apache-2.0
// Handlers that throw, forks, and signals of faults: the host stays whole.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>

#include "tests/bus/fixture.h"

namespace {

using namespace tests;

constexpr std::uint32_t kSender = 1;
constexpr std::uint32_t kReceiver = 2;

class Faults : public BusTest {};

INSTANTIATE_TEST_SUITE_P(On, Faults, testing::ValuesIn(transports()),
                         [](const auto& of) { return of.param; });

// ---- handlers that throw ------------------------------------------------------------------------------

TEST_P(Faults, AHandlerThatThrowsEndsItsMessageAndNothingElse) {
    TestBus sender(url(), kSender);
    TestBus receiver(url(), kReceiver);
    std::array<std::uint8_t, 3> text = {7, 8, 9};
    std::array<Nac_SetUserTableMsg, 3> records = {};
    for (std::uint32_t i = 0; i < records.size(); ++i) {
        records[i].f0 = i;
        records[i].f31_count = text.size();
        records[i].f31 = text.data();
    }
    receiver.on_message = [&](const vorn_bus_message& message) {
        if (message.message_id != Nac_SetUserTableMsg_ID) return;
        if (static_cast<const Nac_SetUserTableMsg*>(message.record)->f0 == 1) throw std::runtime_error("one");
    };
    vorn_bus_use(sender.get());
    ASSERT_EQ(Nac_SetUserTableMsg__sendmsg(kReceiver, records.data(), 3), 0U);
    ASSERT_EQ(sender.send(kReceiver, {24, 1}), 0U);
    ASSERT_TRUE(eventually([&] { return receiver.counters().waiting_batches == 2; }));
    std::uint32_t handled = 9;
    EXPECT_EQ(vorn_bus_poll(receiver.get(), 1000, 0, &handled), VORN_BUS_HANDLER_FAILED);
    EXPECT_EQ(handled, 1U);
    EXPECT_EQ(receiver.arrived().size(), 3U);
    EXPECT_EQ(services.live_blocks(), 0U);
    ASSERT_EQ(receiver.log().size(), 1U);
    EXPECT_NE(receiver.log()[0].find("a handler threw an exception"), std::string::npos);

    EXPECT_EQ(vorn_bus_poll(receiver.get(), 1000, 0, &handled), VORN_BUS_OK);
    EXPECT_EQ(handled, 1U);
    const auto arrived = receiver.arrived();
    ASSERT_EQ(arrived.size(), 4U);
    EXPECT_EQ(arrived[3].port().f0, 24U);
    EXPECT_EQ(receiver.counters().received_batches, 2U);
    EXPECT_EQ(receiver.counters().received_messages, 4U);
    EXPECT_EQ(vorn_bus_flush(sender.get(), 5000), VORN_BUS_OK);
}

TEST_P(Faults, TheReceivingThreadContinuesWhereAHandlerThrows) {
    TestBus sender(url(), kSender);
    TestBus receiver(url(), kReceiver);
    receiver.on_message = [](const vorn_bus_message& message) {
        if (static_cast<const Nac_SetPortMsg*>(message.record)->f0 % 2 == 0) throw 7;
    };
    ASSERT_EQ(vorn_bus_start(receiver.get()), VORN_BUS_OK);
    for (std::uint32_t i = 0; i < 10; ++i) ASSERT_EQ(sender.send(kReceiver, {i, 0}), 0U);
    EXPECT_EQ(vorn_bus_flush(sender.get(), 5000), VORN_BUS_OK);
    EXPECT_TRUE(eventually([&] { return receiver.counters().received_batches == 10; }));
    EXPECT_EQ(receiver.arrived().size(), 10U);
    EXPECT_EQ(receiver.log().size(), 5U);
    EXPECT_EQ(vorn_bus_stop(receiver.get()), VORN_BUS_OK);
}

TEST_P(Faults, AWatchHandlerThatThrowsEndsThePollAfterItsBatch) {
    TestBus sender(url(), kSender);
    TestBus receiver(url(), kReceiver);
    TestWatch watch(url(), {kReceiver});
    ASSERT_TRUE(watch.wait_for_receivers(1));
    ASSERT_EQ(sender.send(kReceiver, {{1, 0}, {2, 0}}), 0U);
    ASSERT_EQ(sender.send(kReceiver, {3, 0}), 0U);
    ASSERT_TRUE(receiver.poll_until(3));
    int calls = 0;
    std::uint32_t handled = 9;
    const auto poll = [&] {
        return vorn_bus_watch_poll(
            watch.get(), 10000, 1,
            [](const vorn_bus_watched* message, void* number) {
                ++*static_cast<int*>(number);
                if (message->count == 2 && message->position == 0) throw std::runtime_error("first");
            },
            &calls, &handled);
    };
    EXPECT_EQ(poll(), VORN_BUS_HANDLER_FAILED);
    EXPECT_EQ(handled, 1U);
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(poll(), VORN_BUS_OK);
    EXPECT_EQ(calls, 3);
    EXPECT_EQ(watch.counters().batches, 2U);
}

// ---- forks and signals ----------------------------------------------------------------------------------

TEST_P(Faults, InAForkedChildTheBusIsClosedAndEndsAtOnce) {
    TestBus bus(url(), kSender);
    ASSERT_EQ(vorn_bus_start(bus.get()), VORN_BUS_OK);
    TestWatch watch(url(), {kSender});
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        alarm(20);
        const std::array<std::uint8_t, 1> bytes = {};
        const VORN_SendDescriptor descriptor = {bytes.data(), 1, 1};
        vorn_bus_counters counters = vorn_bus_counters_init();
        const bool refused = vorn_bus_send(bus.get(), kSender, &descriptor, 1, 0) == VORN_BUS_NOT_OPEN &&
                             VORN_SendMsg(kSender, &descriptor, 1) == VORN_BUS_NOT_OPEN &&
                             vorn_bus_poll(bus.get(), 0, 0, nullptr) == VORN_BUS_NOT_OPEN &&
                             vorn_bus_flush(bus.get(), 0) == VORN_BUS_NOT_OPEN &&
                             vorn_bus_read_counters(bus.get(), &counters) == VORN_BUS_NOT_OPEN &&
                             vorn_bus_descriptor(bus.get()) < 0;
        bus.close();
        vorn_bus_watch_close(watch.get());
        _exit(refused ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    ASSERT_EQ(bus.send(kSender, {1, 2}), 0U);  // the parent's is as it was
    EXPECT_TRUE(eventually([&] { return bus.arrived().size() == 1; }));
}

std::set<std::string> threads() {
    std::set<std::string> all;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task"))
        all.insert(entry.path().filename().string());
    return all;
}

std::string field_of(const std::string& thread, const std::string& name) {
    std::ifstream status("/proc/self/task/" + thread + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind(name + ":", 0) == 0)
            return line.substr(line.find_first_not_of(" \t", name.size() + 1));
    }
    return "";
}

TEST_P(Faults, ThreadsOfTheBusTakeSignalsOfFaultsAndNoOthers) {
    std::thread([] {}).join();  // with the first, sanitizers begin one of their own
    const std::set<std::string> before = threads();
    TestBus bus(url(), kSender);
    ASSERT_EQ(vorn_bus_start(bus.get()), VORN_BUS_OK);
    const auto is_blocked = [](const std::string& thread, int signal) {
        return (std::stoull(field_of(thread, "SigBlk"), nullptr, 16) >> (signal - 1) & 1) != 0;
    };
    int looked_at = 0;
    for (const std::string& thread : threads()) {
        if (before.contains(thread)) continue;
        // While a thread begins, the C library blocks all, and then it has the mask of the thread that began
        // it.
        ASSERT_TRUE(eventually([&] { return !is_blocked(thread, SIGSEGV) && is_blocked(thread, SIGINT); }));
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS})
            EXPECT_FALSE(is_blocked(thread, fault)) << field_of(thread, "Name") << ": " << fault;
        for (const int other : {SIGINT, SIGTERM, SIGHUP, SIGUSR1, SIGCHLD, SIGALRM, SIGPIPE})
            EXPECT_TRUE(is_blocked(thread, other)) << field_of(thread, "Name") << ": " << other;
        ++looked_at;
    }
    EXPECT_GE(looked_at, 1);
}

}  // namespace
