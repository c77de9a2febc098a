// SPDX-License-Identifier: Apache-2.0
// Threads: many at once make the first call into a unit, and many at once pack, unpack and send.
//
// A unit's first call happens once in a process, so the tests count on CTest, which runs every test in a
// process of its own. That the use flag is asked for once per unit is how a test sees from outside that a
// unit resolved its hooks once; lookups_test.cpp counts the lookups themselves.
#include <pthread.h>

#include <functional>
#include <thread>

#include "tests/support/message.h"
#include "tests/support/units.h"

namespace {

using namespace tests;

// Runs work(0) to work(count - 1), each in a thread of its own, and none before all threads are there. The
// barrier is one that tools which watch threads know.
void at_once(std::uint32_t count, const std::function<void(std::uint32_t)>& work) {
    pthread_barrier_t start;
    ASSERT_EQ(pthread_barrier_init(&start, nullptr, count), 0);
    std::vector<std::thread> threads;
    for (std::uint32_t i = 0; i < count; ++i) {
        threads.emplace_back([&, i] {
            pthread_barrier_wait(&start);
            work(i);
        });
    }
    for (std::thread& thread : threads) thread.join();
    pthread_barrier_destroy(&start);
}

constexpr std::uint32_t kRacers = 64;  // for the first call into a unit
constexpr std::uint32_t kThreads = 8;

class FirstUseByThreads : public MessageTest, public testing::WithParamInterface<UnitCalls> {};
INSTANTIATE_TEST_SUITE_P(, FirstUseByThreads, testing::ValuesIn(kUnits), unit_name);

TEST_P(FirstUseByThreads, ResolvesTheMemoryHooksOnce) {
    at_once(kRacers, [](std::uint32_t) { GetParam().use(); });
    EXPECT_EQ(services.use_flag_calls(), 1U);
}

TEST_P(FirstUseByThreads, ResolvesTheLogHookOnceAndLosesNoLine) {
    at_once(kRacers, [](std::uint32_t) { GetParam().complain(); });
    EXPECT_EQ(services.use_flag_calls(), 1U);
    EXPECT_EQ(services.log_lines().size(), kRacers);
}

class Threads : public MessageTest {};

TEST_F(Threads, FirstCallsIntoAllFourteenUnitsAtOnceResolveEachOnce) {
    at_once(3 * kUnits.size(), [](std::uint32_t i) { kUnits[i % kUnits.size()].complain(); });
    EXPECT_EQ(services.use_flag_calls(), 14U);
    EXPECT_EQ(services.log_lines().size(), 3 * kUnits.size());
}

TEST_F(Threads, FirstSendAndFirstUnpackOfOneModuleMeet) {
    const Nac_UserDataFlowMsg list = {};
    at_once(kThreads, [&](std::uint32_t i) {
        if (i % 2 == 0) {
            EXPECT_EQ(Nac_UserDataFlowMsg__sendmsg(i, &list, 1), 0U);
        } else {
            unpack_nothing<Nac_UserDataFlowMsg>();
        }
    });
    EXPECT_EQ(services.use_flag_calls(), 2U);
    EXPECT_EQ(services.allocations().size(), kThreads / 2);
}

// ---- every thread with records of its own -----------------------------------------------------------

constexpr std::uint32_t kRounds = 50;

// What differs between the records of one thread and round and all others; never 0.
std::uint32_t mark_of(std::uint32_t thread, std::uint32_t round) {
    return 0x01000000U * (thread + 1) + round + 1;
}

TEST_F(Threads, PackDifferentRecordsAtOnce) {
    at_once(kThreads, [](std::uint32_t thread) {
        for (std::uint32_t round = 0; round < kRounds; ++round) {
            const Nac_SetPortMsg port = {mark_of(thread, round), ~mark_of(thread, round)};
            Bytes expected =
                hex("0c 00 00 00"              // root reference: table at 12
                    "08 00 0c 00 04 00 08 00"  // vtable: length, table length, offsets of f0 and f1
                    "08 00 00 00"              // soffset
                    "00 00 00 00"              // f0, below
                    "00 00 00 00");            // f1, below
            put32(expected, 16, port.f0);
            put32(expected, 20, port.f1);
            Bytes actual(expected.size());
            auto length = static_cast<std::uint32_t>(actual.size());
            ASSERT_EQ(Nac_SetPortMsg__pack(&port, actual.data(), &length), 0U);
            ASSERT_EQ(actual, expected);
        }
    });
}

TEST_F(Threads, UnpackDifferentListsAtOnce) {
    at_once(kThreads, [](std::uint32_t thread) {
        for (std::uint32_t round = 0; round < kRounds; ++round) {
            Bytes message =
                hex("0a 00 00 00"        // root reference: table at 10
                    "06 00 14 00 04 00"  // vtable: length, table length, offset of f0
                    "06 00 00 00"        // soffset
                    "04 00 00 00"        // reference of f0: vector at 18
                    "02 00 00 00"        // two elements
                    "0e 00 00 00"        // the first one's table at 22 + 14 = 36
                    "0a 00 00 00"        // the second one's, the same, at 26 + 10 = 36
                    "06 00 08 00 04 00"  // vtable at 30: length, table length, offset of f0
                    "06 00 00 00"        // soffset
                    "00 00 00 00");      // f0, below
            put32(message, 40, mark_of(thread, round));
            Nac_UserDataFlowMsg list = {};
            Nac_UserDataFlowMsg__unpack(message.data(), static_cast<std::uint32_t>(message.size()), &list);
            ASSERT_EQ(list.f0_count, 2U);
            ASSERT_NE(list.f0, nullptr);
            ASSERT_EQ(list.f0[0].f0, mark_of(thread, round));
            ASSERT_EQ(list.f0[1].f0, mark_of(thread, round));
            Nac_UserDataFlowMsg_free__unpacked(&list);
            ASSERT_EQ(list.f0, nullptr);
        }
    });
    EXPECT_EQ(services.allocations().size(), kThreads * kRounds);
}

Bytes image_of_port(std::uint32_t f0, std::uint32_t f1) {
    Bytes image =
        hex("04 00 00 00"                // root reference: table at 4
            "f4 ff ff ff"                // soffset -12: vtable at 16
            "00 00 00 00"                // f0, below
            "00 00 00 00"                // f1, below
            "08 00 0c 00 04 00 08 00");  // vtable: length, table length, offsets of f0 and f1
    put32(image, 8, f0);
    put32(image, 12, f1);
    return image;
}

TEST_F(Threads, SendImagesAtOnceSinglyAndInBatches) {
    at_once(kThreads, [](std::uint32_t thread) {
        for (std::uint32_t round = 0; round < kRounds; ++round) {
            const std::uint32_t mark = mark_of(thread, round);
            const Nac_SetPortMsg ports[2] = {{mark, 1}, {mark, 2}};
            ASSERT_EQ(Nac_SetPortMsg__sendmsg(mark, ports, 1 + round % 2), 0U);
        }
    });
    const std::vector<Sent> sends = bus.sends();
    ASSERT_EQ(sends.size(), kThreads * kRounds);
    for (const Sent& sent : sends) {
        const std::uint32_t round = (sent.destination & 0xFFFFFF) - 1;
        ASSERT_EQ(sent.messages.size(), 1 + round % 2);
        for (std::uint32_t i = 0; i < sent.messages.size(); ++i) {
            EXPECT_TRUE(same_bytes(sent.messages[i], image_of_port(sent.destination, i + 1)));
        }
    }
}

TEST_F(Threads, SendListsAndUnpackThemAtOnce) {
    ASSERT_EQ(nac_fwm_uclgroup_recv_init(), 0);
    at_once(kThreads, [](std::uint32_t thread) {
        for (std::uint32_t round = 0; round < kRounds; ++round) {
            const std::uint32_t mark = mark_of(thread, round);
            Nac_ConfigAccessUserUclGroupIpMsg element = {1, {2, 3, 4, ~mark, 5}};
            const Nac_UclGroupIpArray lists[2] = {{mark, 1, &element}, {mark, 1, &element}};
            ASSERT_EQ(Nac_UclGroupIpArray__sendmsg(mark, lists, 1 + round % 2), 0U);
        }
    });
    const std::vector<Sent> sends = bus.take_sends();
    ASSERT_EQ(sends.size(), kThreads * kRounds);
    std::atomic<std::uint32_t> arrived = 0;
    at_once(kThreads, [&](std::uint32_t thread) {
        for (std::size_t i = thread; i < sends.size(); i += kThreads) {
            bus.deliver(sends[i], [&](const void* record, std::uint32_t /*record_bytes*/) {
                const auto& list = *static_cast<const Nac_UclGroupIpArray*>(record);
                ASSERT_EQ(list.f1_count, 1U);
                ASSERT_NE(list.f1, nullptr);
                EXPECT_EQ(list.f0, sends[i].destination);
                EXPECT_EQ(list.f1[0].f1.f3, ~sends[i].destination);
                ++arrived;
            });
        }
    });
    EXPECT_EQ(arrived, kThreads * (kRounds + kRounds / 2));
}

TEST_F(Threads, RegisterAndCleanAtOnce) {
    at_once(kThreads, [](std::uint32_t) {
        EXPECT_EQ(nac_fwm_dataflow_recv_init(), 0);
        EXPECT_EQ(nac_fwm_dataflow_send_init(), 0);
        nac_fwm_dataflow__send_resource_clean();
    });
    EXPECT_EQ(bus.registrations().size(), kThreads * 5);
    EXPECT_EQ(bus.resource_cleans().size(), kThreads);
}

}  // namespace
