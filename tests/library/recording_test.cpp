// SPDX-License-Identifier: Apache-2.0
// The stand-ins for the device: the recording bus and host services.
#include <optional>
#include <string>
#include <vector>

#include "tests/support/message.h"

namespace {

using namespace tests;

class Bus : public MessageTest {};

TEST_F(Bus, RecordsWhatWasSentAndAnswersAsAsked) {
    const Nac_SetPortMsg record = {1, 2};
    EXPECT_EQ(Nac_SetPortMsg__sendtomsg(9, &record, 1, 11), 0U);
    bus.answer_sends(5);
    EXPECT_EQ(Nac_SetPortMsg__sendmsg(8, &record, 1), 5U);
    const std::vector<Sent> sends = bus.take_sends();
    ASSERT_EQ(sends.size(), 2U);
    EXPECT_EQ(sends[0].destination, 9U);
    EXPECT_EQ(sends[0].target, 11U);
    EXPECT_EQ(sends[0].messages.size(), 1U);
    EXPECT_EQ(sends[1].destination, 8U);
    EXPECT_EQ(sends[1].target, std::nullopt);
    EXPECT_TRUE(bus.sends().empty());
}

TEST_F(Bus, DeliversToTheLastRegisteredUnpackAndFreesTheRecord) {
    static std::vector<std::string> calls;
    calls.clear();
    const auto unpack = [](const std::uint8_t* buffer, std::uint32_t length, void* record) {
        calls.push_back("unpack " + std::to_string(length));
        *static_cast<std::uint8_t*>(record) = buffer[1];
        return std::uint32_t{2};
    };
    const auto never = [](const std::uint8_t* /*buffer*/, std::uint32_t /*length*/, void* /*record*/) {
        calls.emplace_back("the earlier unpack");
        return std::uint32_t{0};
    };
    const auto release = [](void* /*record*/) { calls.emplace_back("free"); };
    EXPECT_EQ(VORN_RegIDLFuncHook(5, never, release), 0);
    EXPECT_EQ(VORN_RegIDLFuncHook(5, unpack, release), 0);
    const std::uint8_t bytes[] = {3, 4};
    const VORN_SendDescriptor descriptor = {bytes, 5, 2};
    EXPECT_EQ(VORN_SendMsg(1, &descriptor, 1), 0);
    bus.deliver(bus.sends().at(0), [](const void* record, std::uint32_t record_bytes) {
        calls.push_back("record " + std::to_string(*static_cast<const std::uint8_t*>(record)) + " of " +
                        std::to_string(record_bytes));
    });
    EXPECT_EQ(calls, (std::vector<std::string>{"unpack 2", "record 4 of 2", "free"}));
}

class Services : public MessageTest {};

TEST_F(Services, RecordWhoAllocatedAndWhoReleased) {
    void* const block = ZEB_OsalMemCacheAlloc(10, 12, "alice");
    ZEB_OsalMemFree(block, 13, "bob");
    ZEB_OsalMemFree(nullptr, 12, "carol");
    ASSERT_EQ(services.allocations().size(), 1U);
    EXPECT_EQ(services.allocations()[0].size, 10U);
    EXPECT_EQ(services.allocations()[0].allocator, Allocator::cache);
    ASSERT_EQ(services.releases().size(), 2U);
    EXPECT_EQ(services.releases()[0].allocated_by, "alice");
    EXPECT_EQ(services.releases()[0].caller, "bob");
    EXPECT_EQ(services.releases()[0].owner_code, 13U);
    EXPECT_EQ(services.releases()[1].block, nullptr);
}

TEST_F(Services, FailExactlyTheChosenAllocation) {
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
    const LogLine line = services.log_lines()[0];
    EXPECT_EQ(line.text, "this is -1");
    EXPECT_EQ(line.format, "%s is %d");
    EXPECT_EQ(line.module_name, "m");
    EXPECT_EQ(line.log_module_name, "l");
    EXPECT_EQ(line.owner_code, 5U);
    EXPECT_EQ(line.level, 2U);
    EXPECT_EQ(line.category, 22U);
    EXPECT_EQ(line.line, 99U);
}

TEST_F(Services, AnswerTheUseFlagThatIsSet) {
    EXPECT_EQ(ZEB_OsalMemUseFlagGet(12), 1U);
    services.set_use_flag(0);
    EXPECT_EQ(ZEB_OsalMemUseFlagGet(12), 0U);
    EXPECT_EQ(services.use_flag_calls(), 2U);
}

}  // namespace
