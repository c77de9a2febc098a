// SPDX-License-Identifier: Apache-2.0
// The four send functions of every type: dispatch, blocks and descriptors, the bus's results, refusals.
#include <algorithm>
#include <array>
#include <csignal>
#include <memory>
#include <string>

#ifdef KAPLO_COUNTED
extern "C" {
#include <gcov.h>
}
#endif

#include "bus/send.h"
#include "nac/catalogue.h"
#include "runtime/size.h"
#include "tests/support/message.h"

namespace {

using namespace tests;

constexpr std::uint32_t kOwner = 0x6200;
constexpr std::uint32_t kArea = 65536;

// What the types are sent as. Bytes 0: as large as the record needs.
struct Numbers {
    std::uint32_t bytes;
    std::uint32_t bytes_in_batch;
    std::uint32_t record_bytes;
};

template <class Record>
constexpr Numbers described() {
    if constexpr (kaplo::owns_memory<Record>) {
        return {0, 0, sizeof(Record)};
    } else {
        return {kaplo::Image<Record>::bytes, kaplo::Image<Record>::bytes + 16, sizeof(Record)};
    }
}
template <class Record>
constexpr Numbers numbers_of = described<Record>();  // of types that came later
#define NUMBERS(Message, ...) \
    template <>               \
    constexpr Numbers numbers_of<Nac_##Message> = {__VA_ARGS__};
NUMBERS(UserDataFlowCfg, 56, 72, 32)
NUMBERS(UserDataFlowInfo, 256, 272, 136)
NUMBERS(UserDataFlowMsg, 0, 0, 16)
NUMBERS(UserDataFlowQueryMsg, 24, 40, 8)
NUMBERS(UserDataFlowQueryAckMsg, 280, 296, 144)
NUMBERS(PortVlanChangeMsg, 32, 48, 12)
NUMBERS(SetPortMsg, 24, 40, 8)
NUMBERS(CfgUclGroupIp, 48, 64, 20)
NUMBERS(ConfigAccessUserUclGroupIpMsg, 72, 88, 24)
NUMBERS(ConfigAccessUserUclGroupIpAckMsg, 80, 96, 28)
NUMBERS(UclGroupIpArray, 0, 0, 16)
NUMBERS(UclGroupIpAckArray, 0, 0, 16)
NUMBERS(SetUserTableMsg, 0, 0, 328)
NUMBERS(SetUserTableAckMsg, 72, 88, 36)
NUMBERS(UserTableHitMsg, 48, 64, 24)
NUMBERS(L2NotifyNacUserOfflineMsg, 72, 88, 32)
NUMBERS(TableVersionChangeMsg, 24, 40, 4)
NUMBERS(UserTableSyncAckMsg, 48, 64, 20)
NUMBERS(DaclRuleIpInfo, 240, 256, 124)
NUMBERS(RadiusDaclRule, 296, 312, 148)
NUMBERS(UserDetectInfo, 32, 48, 8)
NUMBERS(IpsecAuthenReqMsg, 0, 0, 104)
NUMBERS(IpsecAuthenAckMsg, 0, 0, 104)
NUMBERS(IpsecDownReqMsg, 48, 64, 20)
NUMBERS(IpsecDownAckMsg, 48, 64, 20)
#undef NUMBERS

#define RECORD_TYPE(Message) Message,
template <class Ignored, class... Message>
using TypesAfter = testing::Types<Message...>;
struct EndOfList {};
template <class... Listed>
struct WithoutEnd;
template <class... Listed>
using AllTypes = typename WithoutEnd<Listed...>::Types;
template <class... Listed>
struct WithoutEnd<EndOfList, Listed...> {
    using Types = testing::Types<Listed...>;
};
template <class First, class... Listed>
struct WithoutEnd<First, Listed...> : WithoutEnd<Listed..., First> {};
using Messages = AllTypes<NAC_ALL_MESSAGES(RECORD_TYPE) EndOfList>;
#undef RECORD_TYPE

template <class Record>
class Send : public MessageTest {
  protected:
    using Functions = nac::Functions<Record>;
    static constexpr Numbers numbers = numbers_of<Record>;
    static constexpr bool as_image = numbers.bytes != 0;
    static constexpr std::uint32_t id = kaplo::message_id<Record>;
    static std::string name(const char* operation) {
        return kaplo::Description<Record>::name.c_str() + std::string(operation);
    }

    // Records that differ in their first field, if that is a number.
    static std::vector<Record> records(std::size_t count) {
        std::vector<Record> made(count);
        for (std::size_t i = 0; i < count; ++i) {
            using First = typename decltype(first_of(typename kaplo::Description<Record>::Fields{}))::type;
            if constexpr (First::kind == kaplo::Kind::scalar) {
                First::in(made[i]) = static_cast<typename First::Element>(i + 1);
            }
        }
        return made;
    }

    // Bytes of one of records() on the wire.
    static std::uint32_t bytes_of(const Record& record) {
        return as_image ? numbers.bytes : kaplo::message_bytes(&record);
    }

    static constexpr std::uint32_t block_of(std::uint32_t count) {
        return as_image ? count * numbers.bytes_in_batch : (count + 4096) * 16;
    }

  private:
    template <class First, class... Others>
    static std::type_identity<First> first_of(kaplo::List<First, Others...>);
};

TYPED_TEST_SUITE(Send, Messages);

TYPED_TEST(Send, NumbersOfTheTypeAreAsListed) {
    EXPECT_EQ(sizeof(TypeParam), this->numbers.record_bytes);
    EXPECT_EQ(this->numbers.bytes_in_batch, this->as_image ? this->numbers.bytes + 16 : 0);
    EXPECT_EQ(kaplo::owns_memory<TypeParam>, !this->as_image);
}

TYPED_TEST(Send, OfNoRecordsIsRefusedWithoutTheBus) {
    const TypeParam record = {};
    EXPECT_EQ(TestFixture::Functions::send(1, &record, 0), kRefused);
    EXPECT_EQ(TestFixture::Functions::send_to(1, &record, 0, 2), kRefused);
    EXPECT_TRUE(this->bus.sends().empty());
    EXPECT_TRUE(this->services.allocations().empty());
}

TYPED_TEST(Send, OfOneRecordHandsOneDescriptorToTheBus) {
    const TypeParam record = this->records(1)[0];
    EXPECT_EQ(TestFixture::Functions::send(0xAABBCCDD, &record, 1), 0U);
    ASSERT_EQ(this->bus.sends().size(), 1U);
    const Sent sent = this->bus.sends()[0];
    EXPECT_EQ(sent.destination, 0xAABBCCDDU);
    EXPECT_FALSE(sent.target.has_value()) << "without a target, VORN_SendMsg";
    ASSERT_EQ(sent.descriptors.size(), 1U);
    EXPECT_EQ(sent.descriptors[0].message_id, this->id);
    EXPECT_EQ(sent.descriptors[0].length, this->bytes_of(record));
}

TYPED_TEST(Send, ATargetGoesThroughSendToMsgUnchanged) {
    const auto records = this->records(2);
    constexpr std::uint64_t target = 0xFEDCBA9876543210;
    for (const std::uint32_t count : {1U, 2U}) {
        EXPECT_EQ(TestFixture::Functions::send_to(7, records.data(), count, target), 0U);
        EXPECT_EQ(this->bus.sends().back().target, target);
        EXPECT_EQ(this->bus.sends().back().destination, 7U);
        EXPECT_EQ(TestFixture::Functions::send_to(7, records.data(), count, 0), 0U);
        EXPECT_FALSE(this->bus.sends().back().target.has_value()) << "target 0 is no target";
    }
}

TYPED_TEST(Send, SingleIgnoresItsReservedArgument) {
    const TypeParam record = this->records(1)[0];
    EXPECT_EQ(TestFixture::Functions::send_single(7, &record, 0, 9), 0U);
    EXPECT_EQ(TestFixture::Functions::send_single(7, &record, 0xFFFFFFFF, 9), 0U);
    const auto sends = this->bus.sends();
    EXPECT_EQ(sends[0].messages, sends[1].messages);
    EXPECT_EQ(sends[1].target, 9U);
}

TYPED_TEST(Send, SingleAllocatesNothingForAnImageAndTheExactSizeOtherwise) {
    const TypeParam record = this->records(1)[0];
    EXPECT_EQ(TestFixture::Functions::send(1, &record, 1), 0U);
    const auto allocations = this->services.allocations();
    const auto releases = this->services.releases();
    if (this->as_image) {
        EXPECT_TRUE(allocations.empty() && releases.empty());
        return;
    }
    ASSERT_EQ(allocations.size(), 1U);
    EXPECT_EQ(allocations[0].allocator, Allocator::general);
    EXPECT_EQ(allocations[0].size, this->bytes_of(record));
    EXPECT_EQ(allocations[0].owner_code, kOwner);
    EXPECT_EQ(allocations[0].caller, this->name("__sendsingle"));
    ASSERT_EQ(releases.size(), 1U);
    EXPECT_EQ(releases[0].block, allocations[0].block);
    EXPECT_EQ(releases[0].owner_code, kOwner);
    EXPECT_EQ(releases[0].caller, this->name("__sendsingle"));
}

TYPED_TEST(Send, BatchMakesOneBlockOfMessagesAndDescriptorsAfterThem) {
    constexpr std::uint32_t count = 3;
    const auto records = this->records(count);
    EXPECT_EQ(TestFixture::Functions::send(1, records.data(), count), 0U);

    const auto allocations = this->services.allocations();
    ASSERT_EQ(allocations.size(), 1U);
    EXPECT_EQ(allocations[0].allocator, Allocator::general);
    EXPECT_EQ(allocations[0].size, this->block_of(count));
    EXPECT_EQ(allocations[0].owner_code, kOwner);
    EXPECT_EQ(allocations[0].caller, this->name("__sendbatch"));
    const auto releases = this->services.releases();
    ASSERT_EQ(releases.size(), 1U);
    EXPECT_EQ(releases[0].block, allocations[0].block);
    EXPECT_EQ(releases[0].owner_code, kOwner);
    EXPECT_EQ(releases[0].caller, this->name("__sendbatch"));

    ASSERT_EQ(this->bus.sends().size(), 1U) << "one call of the bus";
    const Sent sent = this->bus.sends()[0];
    ASSERT_EQ(sent.descriptors.size(), count);
    const auto* const block = static_cast<const std::uint8_t*>(allocations[0].block);
    const std::uint32_t area = this->as_image ? count * this->numbers.bytes : kArea;
    EXPECT_EQ(reinterpret_cast<const std::uint8_t*>(sent.descriptors_at), block + area);
    std::uint32_t offset = 0;
    for (std::uint32_t i = 0; i < count; ++i) {
        EXPECT_EQ(sent.descriptors[i].buffer, block + offset) << "messages lie back to back";
        EXPECT_EQ(sent.descriptors[i].message_id, this->id);
        EXPECT_EQ(sent.descriptors[i].length, this->bytes_of(records[i]));
        offset += sent.descriptors[i].length;
    }
}

TYPED_TEST(Send, BatchHoldsTheSameBytesAsSingleSends) {
    const auto records = this->records(4);
    EXPECT_EQ(TestFixture::Functions::send(1, records.data(), 4), 0U);
    const auto batch = this->bus.sends().back().messages;
    for (std::size_t i = 0; i < records.size(); ++i) EXPECT_EQ(batch[i], sent(records[i])) << i;
}

TYPED_TEST(Send, PassesOnTheBussResultAndReleasesTheBlock) {
    const auto records = this->records(2);
    for (const std::int32_t answer : {1, 77, -1, -2147483647}) {
        this->bus.answer_sends(answer);
        for (const std::uint32_t count : {1U, 2U}) {
            EXPECT_EQ(TestFixture::Functions::send(1, records.data(), count),
                      static_cast<std::uint32_t>(answer));
            EXPECT_EQ(TestFixture::Functions::send_to(1, records.data(), count, 3),
                      static_cast<std::uint32_t>(answer));
        }
    }
    EXPECT_EQ(this->services.releases().size(), this->services.allocations().size());
}

TYPED_TEST(Send, WithoutMemoryIsRefusedWithoutTheBusOrALogLine) {
    const auto records = this->records(2);
    this->services.fail_allocation(0);
    EXPECT_EQ(TestFixture::Functions::send(1, records.data(), 2), kRefused);
    if (!this->as_image) {
        this->services.fail_allocation(0);
        EXPECT_EQ(TestFixture::Functions::send(1, records.data(), 1), kRefused);
    }
    EXPECT_TRUE(this->bus.sends().empty());
    EXPECT_TRUE(this->services.releases().empty());
    EXPECT_TRUE(this->services.log_lines().empty());
}

TYPED_TEST(Send, OfANullPointerIsRefused) {
    EXPECT_EQ(TestFixture::Functions::send(1, nullptr, 1), kRefused);
    EXPECT_EQ(TestFixture::Functions::send(1, nullptr, 2), kRefused);
    EXPECT_EQ(TestFixture::Functions::send_batch(1, nullptr, 1, 0), kRefused);
    EXPECT_TRUE(this->bus.sends().empty());
    EXPECT_TRUE(this->services.log_lines().empty());
}

TYPED_TEST(Send, BatchOfNoRecordsCallsTheBusWithAnEmptyBlock) {
    const TypeParam record = {};
    this->bus.answer_sends(42);
    EXPECT_EQ(TestFixture::Functions::send_batch(1, &record, 0, 0), 42U);
    ASSERT_EQ(this->bus.sends().size(), 1U);
    EXPECT_TRUE(this->bus.sends()[0].descriptors.empty());
    ASSERT_EQ(this->services.allocations().size(), 1U);
    EXPECT_EQ(this->services.allocations()[0].size, this->as_image ? 0U : kArea);
    EXPECT_EQ(this->services.releases().size(), 1U);

    EXPECT_EQ(TestFixture::Functions::send_batch(1, nullptr, 0, 0), 42U);
    EXPECT_EQ(this->bus.sends().size(), 2U);

    this->services.fail_allocation(0);
    EXPECT_EQ(TestFixture::Functions::send_batch(1, &record, 0, 0), kRefused);
    EXPECT_EQ(this->bus.sends().size(), 2U);
}

TYPED_TEST(Send, BatchOfOneGoesThroughABlockToo) {
    const TypeParam record = this->records(1)[0];
    EXPECT_EQ(TestFixture::Functions::send_batch(1, &record, 1, 5), 0U);
    EXPECT_EQ(this->services.allocations().at(0).size, this->block_of(1));
    EXPECT_EQ(this->bus.sends().at(0).target, 5U);
}

TYPED_TEST(Send, LogsNothing) {
    const auto records = this->records(2);
    TestFixture::Functions::send(1, records.data(), 1);
    TestFixture::Functions::send(1, records.data(), 2);
    EXPECT_TRUE(this->services.log_lines().empty());
}

class SendExamples : public MessageTest {};

TEST_F(SendExamples, SetPortSingleIsOneDescriptorOf24BytesAndNoAllocation) {
    const Nac_SetPortMsg record = {1, 2};
    EXPECT_EQ(Nac_SetPortMsg__sendmsg(5, &record, 1), 0U);
    const Sent sent = bus.sends().at(0);
    EXPECT_FALSE(sent.target.has_value());
    ASSERT_EQ(sent.descriptors.size(), 1U);
    EXPECT_EQ(sent.descriptors[0].message_id, Nac_SetPortMsg_ID);
    EXPECT_EQ(sent.descriptors[0].length, 24U);
    EXPECT_TRUE(services.allocations().empty());
}

TEST_F(SendExamples, ThreeCfgToATargetTake216BytesWithDescriptorsAt168) {
    const std::array<Nac_UserDataFlowCfg, 3> records = {{{1, 0, 0, 0}, {2, 0, 0, 0}, {3, 0, 0, 0}}};
    EXPECT_EQ(Nac_UserDataFlowCfg__sendtomsg(5, records.data(), 3, 8), 0U);
    ASSERT_EQ(services.allocations().size(), 1U);
    EXPECT_EQ(services.allocations()[0].size, 216U);
    const auto* const block = static_cast<const std::uint8_t*>(services.allocations()[0].block);
    const Sent sent = bus.sends().at(0);
    EXPECT_EQ(sent.target, 8U);
    EXPECT_EQ(reinterpret_cast<const std::uint8_t*>(sent.descriptors_at), block + 168);
    EXPECT_EQ(sent.descriptors[0].buffer, block);
    EXPECT_EQ(sent.descriptors[1].buffer, block + 56);
    EXPECT_EQ(sent.descriptors[2].buffer, block + 112);
    EXPECT_EQ(services.releases().size(), 1U);
}

TEST_F(SendExamples, TwoDataFlowListsTake65568BytesWithDescriptorsAt65536) {
    const std::array<Nac_UserDataFlowMsg, 2> records = {};
    EXPECT_EQ(Nac_UserDataFlowMsg__sendbatch(5, records.data(), 2, 0), 0U);
    EXPECT_EQ(services.allocations().at(0).size, 65568U);
    const auto* const block = static_cast<const std::uint8_t*>(services.allocations()[0].block);
    EXPECT_EQ(reinterpret_cast<const std::uint8_t*>(bus.sends().at(0).descriptors_at), block + 65536);
}

// Records that pack to exactly the bytes wanted: 46 and a byte string of 8 less.
class BatchArea : public MessageTest {
  protected:
    static constexpr std::uint32_t kEmpty = 46;
    std::vector<std::uint8_t> bytes = std::vector<std::uint8_t>(kArea, 0x77);

    Nac_IpsecAuthenAckMsg of_size(std::uint32_t size) {
        Nac_IpsecAuthenAckMsg record = {};
        record.f14_count = size - kEmpty - 8;
        record.f14 = bytes.data();
        EXPECT_EQ(packed_size(record), size);
        services.reset();
        return record;
    }

    std::uint32_t send(const std::vector<Nac_IpsecAuthenAckMsg>& records) {
        return Nac_IpsecAuthenAckMsg__sendbatch(1, records.data(), static_cast<std::uint32_t>(records.size()),
                                                0);
    }

    void expect_refused(const std::vector<Nac_IpsecAuthenAckMsg>& records) {
        EXPECT_EQ(send(records), kRefused);
        EXPECT_TRUE(bus.sends().empty()) << "not even the records that were packed already";
        EXPECT_EQ(services.allocations().size(), 1U);
        EXPECT_EQ(services.releases().size(), 1U);
    }
};

TEST_F(BatchArea, MoreThan65536PackedBytesAreRefusedWhole) {
    const auto half = of_size(kArea / 2);
    expect_refused({half, half, of_size(kEmpty + 8)});
    bus.reset();
    services.reset();
    expect_refused({half, of_size(kArea / 2 + 1)});
}

TEST_F(BatchArea, TheLastRecordMayFillTheAreaToItsEnd) {
    const auto half = of_size(kArea / 2);
    EXPECT_EQ(send({half, half}), 0U);
    EXPECT_EQ(bus.sends().at(0).messages[1].size(), kArea / 2);
    EXPECT_EQ(send({of_size(kArea)}), 0U);
}

TEST_F(BatchArea, ARecordThatFillsTheAreaBeforeTheLastIsRefused) {
    expect_refused({of_size(kArea), of_size(54)});
}

TEST_F(BatchArea, AnAreaFilledToItsLastByteButOneDoesNotHoldTheNext) {
    expect_refused({of_size(kArea - 1), of_size(54)});
}

TEST_F(BatchArea, ARecordThatCannotBeSizedIsRefusedInBatchesAndSingly) {
    Nac_IpsecAuthenAckMsg huge = {};
    huge.f14_count = huge.f15_count = 0x80000000;  // two such byte strings exceed 32 bits; neither is read
    huge.f14 = huge.f15 = bytes.data();
    expect_refused({of_size(54), huge});
    services.reset();
    EXPECT_EQ(Nac_IpsecAuthenAckMsg__sendmsg(1, &huge, 1), kRefused);
    EXPECT_TRUE(services.allocations().empty()) << "nothing is allocated for a record without a size";
}

TEST_F(BatchArea, AThousandRulesGoSinglyButNotInABatch) {
    std::vector<Nac_RadiusDaclRule> rules(1000);
    std::vector<Nac_SetUserTableMsg> records(1);
    records[0].f32_count = 1000;
    records[0].f32 = rules.data();
    EXPECT_EQ(Nac_SetUserTableMsg__sendbatch(1, records.data(), 1, 0), kRefused);
    EXPECT_TRUE(bus.sends().empty());
    EXPECT_EQ(Nac_SetUserTableMsg__sendmsg(1, records.data(), 1), 0U);
    constexpr std::uint32_t rule_bytes = 4 + 26 + 188;  // reference, frame of the rule, its nested table
    EXPECT_EQ(bus.sends().at(0).messages[0].size(), 238U + 8 + 1000 * rule_bytes);
}

class SentBytes : public MessageTest {};

TEST_F(SentBytes, WhatTheSizeCountsButTheWriterLeavesOutIsZero) {
    std::uint16_t nothing = 0;
    Nac_SetUserTableMsg record = {};
    record.f15 = &nothing;  // count 0: counted with 8 bytes, not written
    const std::uint32_t size = packed_size(record);
    EXPECT_EQ(size, 238U + 8);
    // A dirty block of the same size, so that malloc is likely to hand it out again.
    void* const dirty = std::malloc(size);
    std::memset(dirty, 0xDD, size);
    std::free(dirty);
    const Bytes message = sent(record);
    EXPECT_EQ(Bytes(message.end() - 8, message.end()), Bytes(8, 0));
    const std::vector<Nac_SetUserTableMsg> records = {record, record};
    EXPECT_EQ(Nac_SetUserTableMsg__sendmsg(1, records.data(), 2), 0U);
    EXPECT_EQ(bus.sends().back().messages[0], message);
    EXPECT_EQ(bus.sends().back().messages[1], message);
}

TEST_F(SentBytes, PaddingOfAnImageIsZeroOnADirtyStackAndInADirtyBlock) {
    const Nac_PortVlanChangeMsg record = {0xFFFFFFFF, 0xFFFFFFFF, 0xFFFF};
    const std::vector<Nac_PortVlanChangeMsg> records(2, record);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(Nac_PortVlanChangeMsg__sendmsg(1, records.data(), static_cast<std::uint32_t>(i + 1)), 0U);
        const Bytes message = bus.sends().back().messages[0];
        for (const std::size_t padding : {18U, 19U, 30U, 31U}) EXPECT_EQ(message[padding], 0) << padding;
    }
}

TEST(SendDeathTest, EndsTheProcessWhereAMessageIsLongerThanItsSize) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    kaplo::Unit unit;
    const Nac_IpsecAuthenReqMsg record = {};
    std::array<std::uint8_t, 256> buffer = {};
    const std::uint32_t bytes = kaplo::message_bytes(&record);
    kaplo::pack_to_send(unit, &record, buffer.data(), bytes, bytes, "sender");
    const auto send_too_long = [&] {
#ifdef KAPLO_COUNTED  // abort() loses the counts
        std::signal(SIGABRT, [](int /*signal*/) { __gcov_dump(); });
#endif
        kaplo::pack_to_send(unit, &record, buffer.data(), bytes - 1, bytes, "sender");
    };
    EXPECT_DEATH(send_too_long(), "^sender: the message is longer than its size; the process ends\n$");
}

TEST(SendDescriptor, IsSixteenBytesOfAddressIdAndLength) {
    EXPECT_EQ(sizeof(VORN_SendDescriptor), 16U);
    EXPECT_EQ(offsetof(VORN_SendDescriptor, buffer), 0U);
    EXPECT_EQ(sizeof(VORN_SendDescriptor::buffer), 8U);
    EXPECT_EQ(offsetof(VORN_SendDescriptor, message_id), 8U);
    EXPECT_EQ(offsetof(VORN_SendDescriptor, length), 12U);
}

}  // namespace
