// SPDX-License-Identifier: Apache-2.0
// Hosts that lack hooks: whatever a host has, results are the same; who allocates, who frees and what is
// logged depends on what it has. Every variant of the host is linked with these tests.
#include <gtest/gtest.h>

#include <array>

#include "nac/nac_messages.h"
#include "tests/library/host_variants/fake_hooks.h"
#include "tests/support/bytes.h"
#include "tests/support/recording_bus.h"

namespace {

using namespace tests;
using fake::Calls;

class HostVariant : public testing::Test {
  protected:
    HostVariant() {
        bus.reset();
        fake::journal = {};
    }
    ~HostVariant() override {
        EXPECT_EQ(fake::journal.live_blocks, 0U) << "a block of the host was not released by the host";
        EXPECT_EQ(fake::journal.foreign_blocks, 0U) << "the host was given a block that is not its own";
    }

    // The calls that the host must have seen if the library takes that side's memory from it.
    static void expect_calls_for_received(const Calls& calls) {
        EXPECT_EQ(fake::journal.memory, fake::host_allocates_received ? calls : Calls{});
    }
    static void expect_calls_for_sent(const Calls& calls) {
        EXPECT_EQ(fake::journal.memory, fake::host_allocates_to_send ? calls : Calls{});
    }

    static void expect_line(std::uint32_t category, const char* text) {
        ASSERT_EQ(fake::journal.lines.size(), fake::host_logs ? 1U : 0U);
        if (!fake::host_logs) return;
        EXPECT_EQ(fake::journal.lines[0].category, category);
        EXPECT_EQ(fake::journal.lines[0].text, text);
    }

    RecordingBus& bus = RecordingBus::instance();
};

std::uint32_t size_of(const Bytes& bytes) { return static_cast<std::uint32_t>(bytes.size()); }

// Two elements, 0x11 and 0x22 in their f0, without nested tables.
const Bytes kListOfTwo =
    hex("0a 00 00 00"        // root reference: table at 10
        "06 00 14 00 04 00"  // vtable: length, table length, offset of f0
        "06 00 00 00"        // soffset
        "04 00 00 00"        // reference of f0: vector at 18
        "02 00 00 00"        // two elements
        "0e 00 00 00"        // the first one's table at 22 + 14 = 36
        "18 00 00 00"        // the second one's at 26 + 24 = 50
        "06 00 08 00 04 00"  // vtable at 30: length, table length, offset of f0
        "06 00 00 00"        // soffset
        "11 00 00 00"        // f0
        "06 00 08 00 04 00"  // vtable at 44
        "06 00 00 00"        // soffset
        "22 00 00 00");      // f0

TEST_F(HostVariant, UnpacksAListAndFreesIt) {
    Nac_UserDataFlowMsg list = {};
    EXPECT_EQ(Nac_UserDataFlowMsg__unpack(kListOfTwo.data(), size_of(kListOfTwo), &list), 16U);
    ASSERT_EQ(list.f0_count, 2U);
    ASSERT_NE(list.f0, nullptr);
    EXPECT_EQ(list.f0[0].f0, 0x11U);
    EXPECT_EQ(list.f0[0].f5.f3, 0U);
    EXPECT_EQ(list.f0[1].f0, 0x22U);
    Nac_UserDataFlowMsg_free__unpacked(&list);
    EXPECT_EQ(list.f0, nullptr);
    Nac_UserDataFlowMsg_free__unpacked(&list);
    expect_calls_for_received({"cache 272 12 Nac_UserDataFlowMsg_unpack_non_root",  //
                               "free 12 Nac_UserDataFlowMsg_free_unpacked"});
    EXPECT_TRUE(fake::journal.lines.empty());
}

TEST_F(HostVariant, ReleasesTheArrayOfAListWithABadElement) {
    Bytes bad = kListOfTwo;
    put32(bad, 26, 0x1000);
    Nac_UserDataFlowMsg list = {};
    EXPECT_EQ(Nac_UserDataFlowMsg__unpack(bad.data(), size_of(bad), &list), 16U);
    EXPECT_EQ(list.f0_count, 2U);
    EXPECT_EQ(list.f0, nullptr);
    expect_calls_for_received(
        {"cache 272 12 Nac_UserDataFlowMsg_unpack_non_root", "free 12 Nac_UserDataFlowMsg_free_unpacked"});
    expect_line(22,
                "Nac_UserDataFlowInfo_unpack_non_root: "
                "[KAPLO]:Table offset(4122) is out of range(4 - 58)");
}

TEST_F(HostVariant, UnpacksByteStringsAndFreesThem) {
    const Bytes message =
        hex("2a 00 00 00"                                // root reference: table at 42
            "26 00 18 00 00 00 00 00 00 00 00 00 00 00"  // vtable: length, table length, f0 to f4 absent
            "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"  // f5 to f12 absent
            "00 00 04 00 08 00 00 00"                          // f13, offsets of f14 and f15, f16 absent
            "26 00 00 00"                                      // soffset
            "08 00 00 00"                                      // reference of f14: vector at 54
            "0b 00 00 00"                                      // reference of f15: vector at 61
            "03 00 00 00 61 62 63"                             // f14
            "01 00 00 00 7a");                                 // f15
    Nac_IpsecAuthenAckMsg answer = {};
    EXPECT_EQ(Nac_IpsecAuthenAckMsg__unpack(message.data(), size_of(message), &answer), 104U);
    ASSERT_EQ(answer.f14_count, 3U);
    ASSERT_NE(answer.f14, nullptr);
    EXPECT_BYTES(Bytes(answer.f14, answer.f14 + 3), "61 62 63");
    ASSERT_EQ(answer.f15_count, 1U);
    ASSERT_NE(answer.f15, nullptr);
    EXPECT_EQ(answer.f15[0], 0x7A);
    EXPECT_EQ(answer.f16, nullptr);
    Nac_IpsecAuthenAckMsg_free__unpacked(&answer);
    expect_calls_for_received({"cache 3 12 Nac_IpsecAuthenAckMsg_unpack_non_root",
                               "cache 1 12 Nac_IpsecAuthenAckMsg_unpack_non_root",
                               "free 12 Nac_IpsecAuthenAckMsg_free_unpacked",
                               "free 12 Nac_IpsecAuthenAckMsg_free_unpacked"});
}

TEST_F(HostVariant, UnpackOfABadHeaderLogsOneLine) {
    const Bytes bad = hex("ff 00 00 00");
    Nac_SetPortMsg port = {7, 8};
    EXPECT_EQ(Nac_SetPortMsg__unpack(bad.data(), 4, &port), 8U);
    expect_line(22, "Nac_SetPortMsg_unpack: [KAPLO]:Table offset(255) is out of range(4 - 4)");
}

TEST_F(HostVariant, PackWithoutBufferReturnsTheSizeAndLogsOneLine) {
    const Nac_SetPortMsg port = {7, 8};
    std::uint32_t length = 100;
    EXPECT_EQ(Nac_SetPortMsg__pack(&port, nullptr, &length), 0U);
    EXPECT_EQ(length, 24U);
    expect_line(22, "Nac_SetPortMsg_pack: [KAPLO]:Param invalid(null, 100, nonNull)");
}

// An address list with one all-zero element.
struct ListOfOne {
    Nac_ConfigAccessUserUclGroupIpMsg element = {};
    Nac_UclGroupIpArray record = {0, 1, &element};
};
constexpr const char* kPackedListOfOne =
    "0c 00 00 00"                    // root reference: table at 12
    "08 00 10 00 00 00 04 00"        // vtable: length, table length, f0 absent, offset of f1
    "08 00 00 00"                    // soffset
    "04 00 00 00"                    // reference of f1: vector at 20
    "01 00 00 00"                    // one element
    "0c 00 00 00"                    // its table at 24 + 12 = 36
    "08 00 08 00 00 00 04 00"        // its vtable: length, table length, f0 absent, offset of f1
    "08 00 00 00"                    // soffset
    "12 00 00 00"                    // reference of f1: table at 40 + 18 = 58
    "0e 00 04 00"                    // vtable of f1: length, table length
    "00 00 00 00 00 00 00 00 00 00"  // all five fields absent
    "0e 00 00 00";                   // soffset

TEST_F(HostVariant, PackWritesTheSameBytes) {
    const ListOfOne list;
    Bytes buffer(62);
    std::uint32_t length = 62;
    EXPECT_EQ(Nac_UclGroupIpArray__pack(&list.record, buffer.data(), &length), 0U);
    EXPECT_EQ(length, 62U);
    EXPECT_BYTES(buffer, kPackedListOfOne);
    EXPECT_EQ(fake::journal.memory, Calls{});
}

TEST_F(HostVariant, SendsAListFromABufferOfItsSize) {
    const ListOfOne list;
    EXPECT_EQ(Nac_UclGroupIpArray__sendmsg(5, &list.record, 1), 0U);
    ASSERT_EQ(bus.sends().size(), 1U);
    EXPECT_BYTES(bus.sends()[0].messages.at(0), kPackedListOfOne);
    expect_calls_for_sent(
        {"general 62 25088 Nac_UclGroupIpArray__sendsingle", "free 25088 Nac_UclGroupIpArray__sendsingle"});
    EXPECT_TRUE(fake::journal.lines.empty());
}

TEST_F(HostVariant, SendsABatchOfListsFromOneBlock) {
    const ListOfOne list;
    const std::array<Nac_UclGroupIpArray, 2> lists = {list.record, list.record};
    EXPECT_EQ(Nac_UclGroupIpArray__sendmsg(5, lists.data(), 2), 0U);
    ASSERT_EQ(bus.sends().size(), 1U);
    ASSERT_EQ(bus.sends()[0].messages.size(), 2U);
    EXPECT_BYTES(bus.sends()[0].messages[1], kPackedListOfOne);
    expect_calls_for_sent(
        {"general 65568 25088 Nac_UclGroupIpArray__sendbatch", "free 25088 Nac_UclGroupIpArray__sendbatch"});
}

TEST_F(HostVariant, SendsABatchOfImagesFromOneBlock) {
    const std::array<Nac_SetPortMsg, 3> ports = {{{1, 2}, {3, 4}, {5, 6}}};
    EXPECT_EQ(Nac_SetPortMsg__sendtomsg(5, ports.data(), 3, 9), 0U);
    ASSERT_EQ(bus.sends().size(), 1U);
    ASSERT_EQ(bus.sends()[0].messages.size(), 3U);
    EXPECT_BYTES(bus.sends()[0].messages[2],
                 "04 00 00 00"                // root reference
                 "f4 ff ff ff"                // soffset -12: vtable at 16
                 "05 00 00 00"                // f0
                 "06 00 00 00"                // f1
                 "08 00 0c 00 04 00 08 00");  // vtable: length, table length, offsets of f0 and f1
    expect_calls_for_sent({"general 120 25088 Nac_SetPortMsg__sendbatch",  //
                           "free 25088 Nac_SetPortMsg__sendbatch"});
}

TEST_F(HostVariant, SendsOneImageWithoutMemoryOfAnyKind) {
    const Nac_SetPortMsg port = {1, 2};
    EXPECT_EQ(Nac_SetPortMsg__sendmsg(5, &port, 1), 0U);
    EXPECT_EQ(bus.sends().size(), 1U);
    EXPECT_EQ(fake::journal.memory, Calls{});
}

TEST_F(HostVariant, ReleasesTheBufferWhateverTheBusAnswers) {
    const ListOfOne list;
    bus.answer_sends(77);
    EXPECT_EQ(Nac_UclGroupIpArray__sendmsg(5, &list.record, 1), 77U);
    expect_calls_for_sent(
        {"general 62 25088 Nac_UclGroupIpArray__sendsingle", "free 25088 Nac_UclGroupIpArray__sendsingle"});
}

TEST_F(HostVariant, AListArrivesAsItWasSent) {
    ASSERT_EQ(nac_fwm_uclgroup_recv_init(), 0);
    ListOfOne list;
    list.element.f1.f2 = 0xCAFE;
    EXPECT_EQ(Nac_UclGroupIpArray__sendmsg(5, &list.record, 1), 0U);
    std::uint32_t arrived = 0;
    bus.deliver(bus.sends().at(0), [&](const void* record, std::uint32_t /*record_bytes*/) {
        const auto& received = *static_cast<const Nac_UclGroupIpArray*>(record);
        ASSERT_EQ(received.f1_count, 1U);
        ASSERT_NE(received.f1, nullptr);
        arrived = received.f1[0].f1.f2;
    });
    EXPECT_EQ(arrived, 0xCAFEU);
    Calls expected;
    if (fake::host_allocates_to_send) {
        expected.emplace_back("general 66 25088 Nac_UclGroupIpArray__sendsingle");
        expected.emplace_back("free 25088 Nac_UclGroupIpArray__sendsingle");
    }
    if (fake::host_allocates_received) {
        expected.emplace_back("cache 24 12 Nac_UclGroupIpArray_unpack");
        expected.emplace_back("free 12 Nac_UclGroupIpArray_free_unpacked");
    }
    EXPECT_EQ(fake::journal.memory, expected);
}

TEST_F(HostVariant, AUnitAsksForTheUseFlagOnceWith12) {
    const Nac_PortVlanChangeMsg change = {1, 2, 3};
    for (int i = 0; i < 2; ++i) EXPECT_EQ(Nac_PortVlanChangeMsg__sendmsg(5, &change, 1), 0U);
    EXPECT_EQ(fake::journal.use_flag_arguments, std::vector<std::uint32_t>(fake::use_flag_asked, 12));
}

TEST_F(HostVariant, EveryUnitLogsWithItsOwnModuleRecord) {
    Nac_UserDetectInfo settings = {};
    std::uint32_t length = 100;
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(Nac_UserDetectInfo__unpack(nullptr, 4, &settings), 8U);
        EXPECT_EQ(Nac_UserDetectInfo__pack(&settings, nullptr, &length), 0U);
    }
    const std::vector<fake::Line>& lines = fake::journal.lines;
    ASSERT_EQ(lines.size(), fake::host_logs ? 4U : 0U);
    if (!fake::host_logs) return;
    EXPECT_EQ(lines[0].module, lines[2].module);
    EXPECT_EQ(lines[1].module, lines[3].module);
    EXPECT_NE(lines[0].module, lines[1].module);
    EXPECT_STREQ(lines[0].module->module_name, "KAPLO");
    EXPECT_STREQ(lines[0].module->log_module_name, "KAPLO_TORINEX_SERIAL");
    EXPECT_EQ(lines[0].module->owner_code, 0x6200);
}

}  // namespace
