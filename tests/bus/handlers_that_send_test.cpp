// SPDX-License-Identifier: Apache-2.0
// How long sends wait, and handlers that send.
#include <array>
#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <thread>

#include "tests/bus/fixture.h"

namespace {

using namespace tests;
using namespace std::chrono_literals;

constexpr std::uint32_t kSender = 1;
constexpr std::uint32_t kReceiver = 2;

class HandlersThatSend : public BusTest {};

INSTANTIATE_TEST_SUITE_P(On, HandlersThatSend, testing::ValuesIn(transports()),
                         [](const auto& of) { return of.param; });

void narrow(vorn_bus_options& options) {
    options.queue_batches = 4;
    options.send_timeout_ms = 300;
}

TEST_P(HandlersThatSend, GetTheirAnswersThrough) {
    TestBus client(url(), kSender);
    TestBus server(url(), kReceiver);
    server.on_message = [&](const vorn_bus_message& message) {
        const Nac_SetPortMsg answer = {static_cast<const Nac_SetPortMsg*>(message.record)->f0 + 1, 0};
        EXPECT_EQ(server.send(message.source, answer), 0U);
    };
    ASSERT_EQ(vorn_bus_start(server.get()), 0);
    for (std::uint32_t i = 0; i < 20; ++i) {
        const std::array<std::uint8_t, 24> port = {
            12, 0, 0, 0, 8, 0, 12, 0, 4, 0, 8, 0, 8, 0, 0, 0, static_cast<std::uint8_t>(i),
            0,  0, 0, 0, 0, 0, 0};
        const VORN_SendDescriptor descriptor = {port.data(), Nac_SetPortMsg_ID, 24};
        ASSERT_EQ(vorn_bus_send(client.get(), kReceiver, &descriptor, 1, 0), 0);
        ASSERT_TRUE(client.poll_until(i + 1));
        EXPECT_EQ(client.arrived().at(i).port().f0, i + 1);
    }
}

TEST_P(HandlersThatSend, ASendWaitsAsLongAsItsThreadSays) {
    TestBus sender(url(), kSender, [](vorn_bus_options& options) { options.send_timeout_ms = 20'000; });
    EXPECT_EQ(vorn_bus_send_timeout(0), -1);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(sender.send(9, {1, 2}), std::uint32_t{VORN_BUS_NO_PEER});
    EXPECT_EQ(vorn_bus_send_timeout(50), 0);
    EXPECT_EQ(sender.send(9, {1, 2}), std::uint32_t{VORN_BUS_NO_PEER});
    const auto took = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(took, 50ms);
    EXPECT_LT(took, 10s);
    std::thread([] { EXPECT_EQ(vorn_bus_send_timeout(-1), -1); }).join();  // this thread's own
    EXPECT_EQ(vorn_bus_send_timeout(-7), 50);
    EXPECT_EQ(vorn_bus_send_timeout(-1), -1);
}

// Two processes ask each other, each answers in its handler, and both queues are full: no handler returns
// before the other one does, until a send gives up.
TEST_P(HandlersThatSend, OfTwoThatFillEachOthersQueuesOneGivesUp) {
    TestBus left(url(), kSender, narrow);
    TestBus right(url(), kReceiver, narrow);
    std::atomic<std::uint32_t> full = 0;
    const auto answer = [&](TestBus& bus, std::uint32_t to) {
        return [&bus, &full, to](const vorn_bus_message&) {
            if (bus.send(to, {1, 0}) == VORN_BUS_FULL) ++full;
        };
    };
    left.on_message = answer(left, kReceiver);
    for (std::uint32_t i = 0; i < 4; ++i) {
        ASSERT_EQ(left.send(kReceiver, {0, i}), 0U);
        ASSERT_EQ(right.send(kSender, {0, i}), 0U);
    }
    EXPECT_TRUE(
        eventually([&] { return vorn_bus_poll(left.get(), 0, 1, nullptr) == VORN_BUS_OK && full == 1; }));
    while (right.arrived().size() < 4) vorn_bus_poll(right.get(), 20, 0, nullptr);
}

// The pattern of docs/bus.md: a handler waits for nothing, and what does not fit is sent between polls.
TEST_P(HandlersThatSend, OfTwoThatKeepTheirAnswersForLaterBothGetAll) {
    constexpr std::uint32_t kQuestions = 200;
    struct Process {
        Process(const std::string& url, std::uint32_t address, std::uint32_t peer)
            : to(peer), bus(url, address, narrow) {
            bus.on_message = [this](const vorn_bus_message& message) {
                const auto& port = *static_cast<const Nac_SetPortMsg*>(message.record);
                if (port.f0 == 1) {
                    ++answers;
                } else {
                    unsent.push_back({1, port.f1});
                }
            };
        }
        void run() {
            vorn_bus_send_timeout(0);
            for (std::uint32_t i = 0; i < kQuestions; ++i) unsent.push_back({0, i});
            const auto end = std::chrono::steady_clock::now() + 60s;
            while ((answers < kQuestions || !unsent.empty()) && std::chrono::steady_clock::now() < end) {
                while (!unsent.empty() && send(unsent.front())) unsent.pop_front();
                vorn_bus_poll(bus.get(), unsent.empty() ? 20 : 1, 0, nullptr);
            }
            vorn_bus_send_timeout(-1);
        }
        bool send(const Nac_SetPortMsg& record) {
            const std::array<std::uint8_t, 24> port = {12,
                                                       0,
                                                       0,
                                                       0,
                                                       8,
                                                       0,
                                                       12,
                                                       0,
                                                       4,
                                                       0,
                                                       8,
                                                       0,
                                                       8,
                                                       0,
                                                       0,
                                                       0,
                                                       static_cast<std::uint8_t>(record.f0),
                                                       0,
                                                       0,
                                                       0,
                                                       static_cast<std::uint8_t>(record.f1),
                                                       0,
                                                       0,
                                                       0};
            const VORN_SendDescriptor descriptor = {port.data(), Nac_SetPortMsg_ID, 24};
            return vorn_bus_send(bus.get(), to, &descriptor, 1, 0) == VORN_BUS_OK;
        }
        std::uint32_t to;
        std::deque<Nac_SetPortMsg> unsent;
        std::uint32_t answers = 0;
        TestBus bus;
    };
    Process left(url(), kSender, kReceiver);
    Process right(url(), kReceiver, kSender);
    std::thread other([&] { right.run(); });
    left.run();
    other.join();
    EXPECT_EQ(left.answers, kQuestions);
    EXPECT_EQ(right.answers, kQuestions);
}

}  // namespace
