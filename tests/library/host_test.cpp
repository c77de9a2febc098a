// SPDX-License-Identifier: Apache-2.0
// The stand-ins for the device: the loopback bus and the recording host services.
#include <thread>

#include "tests/support/message.h"

namespace {

using namespace tests;

class Loopback : public MessageTest {
  protected:
    Loopback() {
        nac_fwm_port_recv_init();
        nac_fwm_user_recv_init();
    }
};

TEST_F(Loopback, DeliversWhatWasSentAndFreesIt) {
    std::uint8_t text[] = {1, 2, 3};
    Nac_SetUserTableMsg record = {};
    record.f0 = 7;
    record.f31_count = 3;
    record.f31 = text;
    int arrivals = 0;
    bus.deliver_to([&](const host::Arrival& arrival) {
        ++arrivals;
        EXPECT_EQ(arrival.message_id, 1201171741U);
        EXPECT_EQ(arrival.destination, 9U);
        EXPECT_EQ(arrival.target, 11U);
        EXPECT_EQ(arrival.record_bytes, sizeof record);
        const auto& received = *static_cast<const Nac_SetUserTableMsg*>(arrival.record);
        EXPECT_EQ(received.f0, 7U);
        EXPECT_EQ(Bytes(received.f31, received.f31 + received.f31_count), (Bytes{1, 2, 3}));
    });
    EXPECT_EQ(Nac_SetUserTableMsg__sendtomsg(9, &record, 1, 11), 0U);
    EXPECT_EQ(arrivals, 1);
}

TEST_F(Loopback, AnUnknownIdDeliversNothingOfTheSend) {
    const std::uint8_t bytes[] = {0};
    const VORN_SendDescriptor descriptors[] = {{bytes, 162890069, 1}, {bytes, 5, 1}};
    int arrivals = 0;
    bus.deliver_to([&](const host::Arrival& /*arrival*/) { ++arrivals; });
    EXPECT_EQ(VORN_SendMsg(1, descriptors, 2), host::LoopbackBus::kUnknownMessage);
    EXPECT_EQ(arrivals, 0);
}

TEST_F(Loopback, BytesThatAreNoMessageArriveAsAZeroRecord) {
    const std::uint8_t bytes[] = {1, 2, 3};
    for (std::uint32_t length = 0; length <= 3; ++length) {
        const VORN_SendDescriptor descriptor = {bytes, 1201171741, length};
        bus.deliver_to([&](const host::Arrival& arrival) {
            const auto* const record = static_cast<const std::uint8_t*>(arrival.record);
            EXPECT_EQ(Bytes(record, record + arrival.record_bytes), Bytes(sizeof(Nac_SetUserTableMsg), 0));
        });
        EXPECT_EQ(VORN_SendMsg(1, &descriptor, 1), 0);
    }
    EXPECT_EQ(services.log_lines().size(), 4U);
}

TEST_F(Loopback, ARecordLargerThanItsRoomIsToldBeforeTheHandler) {
    const auto claims_too_much = [](const std::uint8_t* /*buffer*/, std::uint32_t /*length*/,
                                    void* /*record*/) {
        return static_cast<std::uint32_t>(host::LoopbackBus::kRecordRoom + 1);
    };
    EXPECT_EQ(VORN_RegIDLFuncHook(5, claims_too_much, [](void* /*record*/) {}), 0);
    bus.deliver_to([](const host::Arrival& /*arrival*/) { FAIL(); });
    const std::uint8_t bytes[] = {0};
    const VORN_SendDescriptor descriptor = {bytes, 5, 1};
    EXPECT_EQ(VORN_SendMsg(1, &descriptor, 1), host::LoopbackBus::kRecordTooLarge);
}

TEST_F(Loopback, ALaterRegistrationReplacesTheEarlier) {
    const auto unpack_nothing = [](const std::uint8_t* /*buffer*/, std::uint32_t /*length*/,
                                   void* /*record*/) { return std::uint32_t{2}; };
    EXPECT_EQ(VORN_RegIDLFuncHook(162890069, unpack_nothing, [](void* /*record*/) {}), 0);
    bus.deliver_to([](const host::Arrival& arrival) { EXPECT_EQ(arrival.record_bytes, 2U); });
    const Nac_SetPortMsg record = {1, 2};
    EXPECT_EQ(Nac_SetPortMsg__sendmsg(1, &record, 1), 0U);
}

TEST_F(Loopback, AHandlerMaySend) {
    const Nac_SetPortMsg answer = {3, 4};
    int arrivals = 0;
    bus.deliver_to([&](const host::Arrival& arrival) {
        ++arrivals;
        if (arrival.destination == 2) return;
        EXPECT_EQ(Nac_SetPortMsg__sendmsg(2, &answer, 1), 0U);
    });
    EXPECT_EQ(Nac_SetPortMsg__sendmsg(1, &answer, 1), 0U);
    EXPECT_EQ(arrivals, 2);
}

TEST_F(Loopback, KeepsNoSendsWhenToldSo) {
    bus.record_sends(false);
    const Nac_SetPortMsg record = {1, 2};
    EXPECT_EQ(Nac_SetPortMsg__sendmsg(1, &record, 1), 0U);
    EXPECT_TRUE(bus.sends().empty());
}

TEST_F(Loopback, ThreadsDeliverEveryMessageOnce) {
    std::size_t arrivals = 0;  // handlers run one at a time
    std::uint64_t sum = 0;
    bus.deliver_to([&](const host::Arrival& arrival) {
        ++arrivals;
        sum += static_cast<const Nac_SetPortMsg*>(arrival.record)->f0;
    });
    std::vector<std::thread> threads;
    for (std::uint32_t t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (std::uint32_t i = 0; i < 100; ++i) {
                const Nac_SetPortMsg record = {t * 100 + i, 0};
                EXPECT_EQ(Nac_SetPortMsg__sendmsg(1, &record, 1), 0U);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(arrivals, 400U);
    EXPECT_EQ(sum, 399U * 400 / 2);
}

class Services : public MessageTest {};

TEST_F(Services, RecordWhoAllocatedAndWhoReleased) {
    void* const block = ZEB_OsalMemCacheAlloc(10, 12, "alice");
    ZEB_OsalMemFree(block, 13, "bob");
    ZEB_OsalMemFree(nullptr, 12, "carol");
    ASSERT_EQ(services.allocations().size(), 1U);
    EXPECT_EQ(services.allocations()[0].size, 10U);
    EXPECT_EQ(services.allocations()[0].allocator, host::Allocator::cache);
    ASSERT_EQ(services.releases().size(), 2U);
    EXPECT_EQ(services.releases()[0].allocated_by, "alice");
    EXPECT_EQ(services.releases()[0].caller, "bob");
    EXPECT_EQ(services.releases()[0].owner_code, 13U);
    EXPECT_EQ(services.releases()[1].block, nullptr);
}

TEST_F(Services, FailExactlyTheAllocationThatTheyAreTold) {
    services.fail_allocation(1);
    std::vector<void*> blocks;
    for (int i = 0; i < 3; ++i) blocks.push_back(ZEB_OsalMemAlloc(8, 1, "test"));
    EXPECT_NE(blocks[0], nullptr);
    EXPECT_EQ(blocks[1], nullptr);
    EXPECT_NE(blocks[2], nullptr);
    for (void* const block : blocks) ZEB_OsalMemFree(block, 1, "test");
}

TEST_F(Services, KnowLiveBlocks) {
    const std::size_t before = services.live_blocks();
    void* const block = ZEB_OsalMemAlloc(8, 1, "test");
    EXPECT_EQ(services.live_blocks(), before + 1);
    ZEB_OsalMemFree(block, 1, "test");
    EXPECT_EQ(services.live_blocks(), before);
}

TEST_F(Services, FormatLogLines) {
    const KaploLogModule module = {"m", "l", 5};
    ZEB_OsalLogWrite(&module, 2, 22, "", 99, "function", "%s is %d", "this", -1);
    ASSERT_EQ(services.log_lines().size(), 1U);
    const host::LogLine line = services.log_lines()[0];
    EXPECT_EQ(line.text, "this is -1");
    EXPECT_EQ(line.format, "%s is %d");
    EXPECT_EQ(line.module_name, "m");
    EXPECT_EQ(line.log_module_name, "l");
    EXPECT_EQ(line.owner_code, 5U);
    EXPECT_EQ(line.level, 2U);
    EXPECT_EQ(line.category, 22U);
    EXPECT_EQ(line.line, 99U);
}

TEST_F(Services, AnswerTheUseFlagAsTold) {
    EXPECT_EQ(ZEB_OsalMemUseFlagGet(12), 1U);
    services.set_use_flag(0);
    EXPECT_EQ(ZEB_OsalMemUseFlagGet(12), 0U);
    EXPECT_EQ(services.use_flag_calls(), 2U);
}

}  // namespace
