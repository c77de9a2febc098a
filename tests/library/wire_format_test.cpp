// SPDX-License-Identifier: Apache-2.0
// The wire format: both layouts byte by byte, and what a reader accepts as the same message.
#include <array>

#include "tests/support/message.h"
#include "tests/support/message_expectations.h"
#include "tests/support/one_field.h"

namespace {

using namespace tests;

class WireFormat : public MessageTest {};
class CompactLayout : public MessageTest {};
class FixedLayout : public MessageTest {};

constexpr Nac_UserDataFlowCfg kCfg = {0x0102030405060708, 0x1112131415161718, 0x2122232425262728,
                                      0x3132333435363738};

constexpr std::string_view kCfgBytes =
    "10 00 00 00"               // root reference: table at 16
    "0c 00"                     // vtable length
    "24 00"                     // table length: soffset and four u64
    "04 00 0c 00 14 00 1c 00"   // offsets of f0 to f3
    "0c 00 00 00"               // soffset: vtable 12 before the table
    "08 07 06 05 04 03 02 01"   // f0, at 20: nothing here is aligned
    "18 17 16 15 14 13 12 11"   // f1
    "28 27 26 25 24 23 22 21"   // f2
    "38 37 36 35 34 33 32 31";  // f3

void expect_cfg(const Nac_UserDataFlowCfg& actual, const Nac_UserDataFlowCfg& expected) {
    EXPECT_EQ(actual.f0, expected.f0);
    EXPECT_EQ(actual.f1, expected.f1);
    EXPECT_EQ(actual.f2, expected.f2);
    EXPECT_EQ(actual.f3, expected.f3);
}

// ---- the compact layout ------------------------------------------------------------------------------

TEST_F(CompactLayout, HoldsEveryNonZeroField) {
    EXPECT_BYTES(packed(kCfg), kCfgBytes);
    expect_cfg(*Unpacked<Nac_UserDataFlowCfg>(hex(kCfgBytes)), kCfg);
}

TEST_F(CompactLayout, LeavesOutZeroFieldsAndPacksTheRestOneAfterTheOther) {
    const Nac_UserDataFlowCfg cfg = {0, kCfg.f1, 0, kCfg.f3};
    constexpr std::string_view bytes =
        "10 00 00 00"               // root reference
        "0c 00"                     // vtable length: slots stay
        "14 00"                     // table length: soffset and two u64
        "00 00 04 00 00 00 0c 00"   // f0 absent, f1, f2 absent, f3
        "0c 00 00 00"               // soffset
        "18 17 16 15 14 13 12 11"   // f1
        "38 37 36 35 34 33 32 31";  // f3
    EXPECT_BYTES(packed(cfg), bytes);
    expect_cfg(*Unpacked<Nac_UserDataFlowCfg>(hex(bytes)), cfg);
}

TEST_F(CompactLayout, OfAnAllZeroRecordIsTheBareFrame) {
    constexpr std::string_view bytes = "10 00 00 00 0c 00 04 00 00 00 00 00 00 00 00 00 0c 00 00 00";
    EXPECT_BYTES(packed(Nac_UserDataFlowCfg{}), bytes);
    EXPECT_TRUE(Unpacked<Nac_UserDataFlowCfg>(hex(bytes), 0xAA).all(0));
}

TEST_F(CompactLayout, WritesScalarsOfEveryWidthWithoutPadding) {
    const Nac_UserDetectInfo detect = {0x11, 0x22, 0x33445566};
    EXPECT_BYTES(packed(detect),
                 "0e 00 00 00"        // root reference
                 "0a 00 0a 00"        // vtable length, table length
                 "04 00 05 00 06 00"  // offsets of f0 to f2
                 "0a 00 00 00"        // soffset
                 "11"                 // f0
                 "22"                 // f1
                 "66 55 44 33");      // f2, at an odd distance from everything
    const Nac_PortVlanChangeMsg change = {0, 0x01020304, 0x0506};
    EXPECT_BYTES(packed(change),
                 "0e 00 00 00"        // root reference
                 "0a 00 0a 00"        // vtable length, table length
                 "00 00 04 00 08 00"  // f0 absent, f1, f2
                 "0a 00 00 00"        // soffset
                 "04 03 02 01"        // f1
                 "06 05");            // f2
}

TEST_F(CompactLayout, PutsTheVectorRightAfterItsReferenceWhenThatIsTheOnlyField) {
    Nac_UserDataFlowInfo info = {};
    constexpr std::string_view bytes =
        "0a 00 00 00"                          // root reference: table at 10
        "06 00 10 00"                          // vtable length; table length up to the element references
        "04 00"                                // offset of f0
        "06 00 00 00"                          // soffset
        "04 00 00 00"                          // f0: the vector follows at once
        "01 00 00 00"                          // its count
        "14 00 00 00"                          // element 0: table 20 further on
        "10 00 14 00"                          // element: vtable length, table length
        "00 00 00 00 04 00 08 00 0c 00 10 00"  // f0 and f1 absent, offsets of f2 to f5
        "10 00 00 00"                          // soffset
        "1c 00 00 00"                          // f2
        "28 00 00 00"                          // f3
        "34 00 00 00"                          // f4
        "40 00 00 00"                          // f5
        "0c 00 04 00 00 00 00 00 00 00 00 00 0c 00 00 00"   // f2's vtable and table
        "0c 00 04 00 00 00 00 00 00 00 00 00 0c 00 00 00"   // f3's
        "0c 00 04 00 00 00 00 00 00 00 00 00 0c 00 00 00"   // f4's
        "0c 00 04 00 00 00 00 00 00 00 00 00 0c 00 00 00";  // f5's
    EXPECT_BYTES(packed(Nac_UserDataFlowMsg{1, &info}), bytes);
    const Unpacked<Nac_UserDataFlowMsg> list(hex(bytes));
    ASSERT_EQ(list->f0_count, 1U);
    EXPECT_EQ(std::memcmp(list->f0, &info, sizeof info), 0);
}

TEST_F(CompactLayout, WritesNestedTablesAfterTheirParentInFieldOrderEvenWhenTheyAreAllZero) {
    Nac_UserDataFlowInfo info = {};
    info.f0 = 5;
    info.f2.f1 = kCfg.f1;
    info.f5.f0 = kCfg.f0;
    constexpr std::string_view bytes =
        "14 00 00 00"                          // root reference
        "10 00 18 00"                          // vtable length; table length without the nested tables
        "04 00 00 00 08 00 0c 00 10 00 14 00"  // f0, f1 absent, f2 to f5
        "10 00 00 00"                          // soffset
        "05 00 00 00"                          // f0
        "1c 00 00 00"                          // f2: from 28 to 56
        "30 00 00 00"                          // f3: from 32 to 80
        "3c 00 00 00"                          // f4: from 36 to 96
        "48 00 00 00"                          // f5: from 40 to 112
        "0c 00 0c 00 00 00 04 00 00 00 00 00"  // f2's vtable
        "0c 00 00 00 18 17 16 15 14 13 12 11"  // f2's soffset, its f1
        "0c 00 04 00 00 00 00 00 00 00 00 00 0c 00 00 00"  // f3's vtable and table
        "0c 00 04 00 00 00 00 00 00 00 00 00 0c 00 00 00"  // f4's
        "0c 00 0c 00 04 00 00 00 00 00 00 00"              // f5's vtable
        "0c 00 00 00 08 07 06 05 04 03 02 01";             // f5's soffset, its f0
    EXPECT_BYTES(packed(info), bytes);
    const Unpacked<Nac_UserDataFlowInfo> read(hex(bytes), 0xAA);
    EXPECT_EQ(std::memcmp(&*read, &info, sizeof info), 0);
}

TEST_F(CompactLayout, WritesEachElementWithItsNestedTablesBeforeTheNextElement) {
    std::array<Nac_ConfigAccessUserUclGroupIpMsg, 2> elements = {};
    elements[0] = {0x55, {1, 0, 0, 0, 0x66}};
    constexpr std::string_view bytes =
        "0c 00 00 00"              // root reference
        "08 00 18 00"              // vtable length; table length up to the element references
        "04 00 08 00"              // offsets of f0 and f1
        "08 00 00 00"              // soffset
        "44 33 22 11"              // f0
        "04 00 00 00"              // f1
        "02 00 00 00"              // its count
        "10 00 00 00"              // element 0: from 28 to 44
        "34 00 00 00"              // element 1: from 32 to 84
        "08 00 09 00 04 00 05 00"  // element 0: vtable
        "08 00 00 00"              // soffset
        "55"                       // f0
        "12 00 00 00"              // f1: from 49 to 67
        "0e 00 09 00 04 00 00 00 00 00 00 00 08 00"  // its nested table's vtable: f0 and f4 present
        "0e 00 00 00 01 00 00 00 66"                 // soffset, f0, f4
        "08 00 08 00 00 00 04 00"                    // element 1: vtable, f0 absent
        "08 00 00 00"                                // soffset
        "12 00 00 00"                                // f1
        "0e 00 04 00 00 00 00 00 00 00 00 00 00 00"  // its nested table's vtable: nothing present
        "0e 00 00 00";                               // soffset
    EXPECT_BYTES(packed(Nac_UclGroupIpArray{0x11223344, 2, elements.data()}), bytes);
    const Unpacked<Nac_UclGroupIpArray> array(hex(bytes));
    EXPECT_EQ(array->f0, 0x11223344U);
    ASSERT_EQ(array->f1_count, 2U);
    EXPECT_EQ(array->f1[0].f0, 0x55);
    EXPECT_EQ(array->f1[0].f1.f0, 1U);
    EXPECT_EQ(array->f1[0].f1.f4, 0x66);
    EXPECT_EQ(array->f1[1].f0, 0);
    EXPECT_EQ(array->f1[1].f1.f0, 0U);
}

TEST_F(CompactLayout, PacksVectorsAfterTheTableInFieldOrderAndCountsThemInItsLength) {
    std::array<std::uint8_t, 2> two = {'a', 'b'};
    std::array<std::uint8_t, 3> three = {'x', 'y', 'z'};
    std::uint8_t one = 'q';
    Nac_IpsecAuthenReqMsg request = {};
    request.f0 = 1;
    request.f4 = 2;
    request.f5_count = 2;
    request.f5 = two.data();
    request.f7 = 7;
    request.f8_count = 3;
    request.f8 = three.data();
    const std::array<std::uint8_t, 6> address = {1, 2, 3, 4, 5, 6};
    std::memcpy(request.f9, address.data(), address.size());
    request.f14 = 14;
    request.f15_count = 1;
    request.f15 = &one;
    constexpr std::string_view bytes =
        "28 00 00 00"                          // root reference: table at 40
        "24 00 3d 00"                          // vtable length; table length 61 with all vectors
        "04 00 00 00 00 00 00 00 08 00"        // f0, f1 to f3 absent, f4
        "0c 00 00 00 10 00 11 00 15 00"        // f5, f6 absent, f7, f8, f9
        "00 00 00 00 00 00 00 00 19 00 1d 00"  // f10 to f13 absent, f14, f15
        "24 00 00 00"                          // soffset
        "01 00 00 00"                          // f0
        "02 00 00 00"                          // f4
        "15 00 00 00"                          // f5, 12 from the table start: its vector is at 33
        "07"                                   // f7
        "16 00 00 00"                          // f8, at 17: its vector is at 39
        "19 00 00 00"                          // f9, at 21: its vector is at 46
        "0e 00 00 00"                          // f14
        "1b 00 00 00"                          // f15, at 29: its vector is at 56
        "02 00 00 00 61 62"                    // f5: no terminator, no padding
        "03 00 00 00 78 79 7a"                 // f8
        "06 00 00 00 01 02 03 04 05 06"        // f9
        "01 00 00 00 71";                      // f15
    EXPECT_BYTES(packed(request), bytes);
    const Unpacked<Nac_IpsecAuthenReqMsg> read(hex(bytes));
    EXPECT_EQ(read->f4, 2U);
    ASSERT_EQ(read->f5_count, 2U);
    EXPECT_EQ(std::memcmp(read->f5, two.data(), 2), 0);
    EXPECT_EQ(read->f6, nullptr);
    EXPECT_EQ(read->f7, 7);
    ASSERT_EQ(read->f8_count, 3U);
    EXPECT_EQ(std::memcmp(read->f8, three.data(), 3), 0);
    EXPECT_EQ(std::memcmp(read->f9, address.data(), 6), 0);
    EXPECT_EQ(read->f14, 14U);
    ASSERT_EQ(read->f15_count, 1U);
    EXPECT_EQ(*read->f15, 'q');
}

TEST_F(CompactLayout, AlwaysWritesAFixedArrayWithItsFullCount) {
    EXPECT_BYTES(packed(Nac_L2NotifyNacUserOfflineMsg{}),
                 "18 00 00 00"                      // root reference
                 "14 00 12 00"                      // vtable length; table length with the array
                 "00 00 00 00 00 00 00 00 04 00"    // f0 to f3 absent, f4
                 "00 00 00 00 00 00"                // f5 to f7 absent
                 "14 00 00 00"                      // soffset
                 "04 00 00 00"                      // f4
                 "06 00 00 00 00 00 00 00 00 00");  // its count, six zero bytes
}

TEST_F(CompactLayout, LeavesOutAnEmptyVector) {
    EXPECT_BYTES(packed(Nac_UserDataFlowMsg{}),
                 "0a 00 00 00"    // root reference
                 "06 00 04 00"    // vtable length, table length
                 "00 00"          // f0 absent
                 "06 00 00 00");  // soffset
}

TEST_F(CompactLayout, CountsOnlyScalarsAndReferencesInTheLengthOfATableWithoutVectors) {
    Nac_UserDataFlowQueryAckMsg answer = {};
    EXPECT_EQ(get16(packed(answer), 6), 8);  // soffset and the reference of f1
    answer.f0 = 1;
    answer.f1.f2 = kCfg;
    EXPECT_EQ(get16(packed(answer), 6), 12);
}

// ---- the fixed layout --------------------------------------------------------------------------------

TEST_F(FixedLayout, PutsTheVtableAfterTheTable) {
    constexpr std::string_view bytes =
        "04 00 00 00"              // root reference
        "dc ff ff ff"              // soffset -36: vtable at 40
        "08 07 06 05 04 03 02 01"  // f0
        "18 17 16 15 14 13 12 11"  // f1
        "28 27 26 25 24 23 22 21"  // f2
        "38 37 36 35 34 33 32 31"  // f3
        "0c 00 24 00"              // vtable length, table length
        "04 00 0c 00 14 00 1c 00"  // offsets of f0 to f3
        "00 00 00 00";             // padding
    EXPECT_BYTES(sent(kCfg), bytes);
    expect_cfg(*Unpacked<Nac_UserDataFlowCfg>(hex(bytes)), kCfg);
}

TEST_F(FixedLayout, HoldsZeroFieldsTooInTheirPlaces) {
    EXPECT_BYTES(sent(Nac_UserDetectInfo{}),
                 "04 00 00 00"          // root reference
                 "f4 ff ff ff"          // soffset -12: vtable at 16
                 "00 00 00 00 00 00"    // f0, f1, f2
                 "00 00"                // up to the vtable
                 "0a 00 0a 00"          // vtable length, table length
                 "04 00 05 00 06 00"    // offsets of f0 to f2
                 "00 00 00 00 00 00");  // padding
}

TEST_F(FixedLayout, RoundsTheTableLengthUpToFindTheVtable) {
    const Nac_SetUserTableAckMsg ack = {0x10, 0x11, 0x12, 0x13, 0x1415, 0x15, 0x16, 0x17, 0x18};
    constexpr std::string_view bytes =
        "04 00 00 00"                    // root reference
        "d8 ff ff ff"                    // soffset -40, though the table has 38 bytes
        "10 00 00 00"                    // f0
        "11 00 00 00"                    // f1
        "12 00 00 00"                    // f2
        "13 00 00 00"                    // f3
        "15 14"                          // f4
        "15 00 00 00"                    // f5, at 26
        "16 00 00 00"                    // f6
        "17 00 00 00"                    // f7
        "18 00 00 00"                    // f8
        "00 00"                          // up to the vtable
        "16 00 26 00"                    // vtable length, table length 38
        "04 00 08 00 0c 00 10 00 14 00"  // offsets of f0 to f4
        "16 00 1a 00 1e 00 22 00"        // offsets of f5 to f8
        "00 00 00 00 00 00";             // padding
    EXPECT_BYTES(sent(ack), bytes);
    const Unpacked<Nac_SetUserTableAckMsg> read(hex(bytes));
    EXPECT_EQ(read->f4, 0x1415);
    EXPECT_EQ(read->f5, 0x15U);
    EXPECT_EQ(read->f8, 0x18U);
}

TEST_F(FixedLayout, HoldsAWholeImageWhereTheReferenceOfANestedTableBelongs) {
    const Nac_ConfigAccessUserUclGroupIpMsg config = {0x77, {1, 2, 3, 4, 5}};
    constexpr std::string_view bytes =
        "04 00 00 00"                    // root reference
        "c8 ff ff ff"                    // soffset -56: vtable at 60
        "77"                             // f0
        "04 00 00 00"                    // f1, at 9: the nested image, which starts with its own reference
        "e8 ff ff ff"                    // its soffset -24
        "01 00 00 00"                    // its f0
        "02 00 00 00"                    // its f1
        "03 00 00 00"                    // its f2
        "04 00 00 00"                    // its f3
        "05"                             // its f4
        "00 00 00"                       // up to its vtable, at 37
        "0e 00 15 00"                    // its vtable length, table length 21
        "04 00 08 00 0c 00 10 00 14 00"  // offsets of its fields
        "00 00 00 00 00 00"              // its padding to 48 bytes, kept
        "00 00 00"                       // up to the vtable
        "08 00 35 00"                    // vtable length; table length 53 with the nested image
        "04 00 05 00"                    // offsets of f0 and f1
        "00 00 00 00";                   // padding
    EXPECT_BYTES(sent(config), bytes);
    const Unpacked<Nac_ConfigAccessUserUclGroupIpMsg> read(hex(bytes));
    EXPECT_EQ(read->f0, 0x77);
    EXPECT_EQ(read->f1.f0, 1U);
    EXPECT_EQ(read->f1.f3, 4U);
    EXPECT_EQ(read->f1.f4, 5);
}

TEST_F(FixedLayout, HoldsAFixedArrayWithReferenceAndCountInItsPlace) {
    const Nac_L2NotifyNacUserOfflineMsg notice = {1, 2, 3, 4, {10, 11, 12, 13, 14, 15}, 5, 6, 7};
    EXPECT_BYTES(sent(notice),
                 "04 00 00 00"              // root reference
                 "d4 ff ff ff"              // soffset -44: vtable at 48
                 "01 00 00 00"              // f0
                 "02 00 00 00"              // f1
                 "03 00 00 00"              // f2
                 "04 00"                    // f3
                 "04 00 00 00"              // f4: the vector follows
                 "06 00 00 00"              // its count
                 "0a 0b 0c 0d 0e 0f"        // its bytes
                 "05 00 00 00"              // f5
                 "06 00 00 00"              // f6
                 "07 00 00 00"              // f7
                 "14 00 2c 00"              // vtable length, table length
                 "04 00 08 00 0c 00 10 00"  // offsets of f0 to f3
                 "12 00 20 00 24 00 28 00"  // offsets of f4 to f7
                 "00 00 00 00");            // padding
}

TEST_F(FixedLayout, CountsEverythingUpToTheEndOfTheLastFieldInTheTableLength) {
    EXPECT_EQ(get16(sent(Nac_CfgUclGroupIp{}), 30), 21);                  // four u32 and one u8
    EXPECT_EQ(get16(sent(Nac_DaclRuleIpInfo{}), 182), 175);               // fixed arrays included
    EXPECT_EQ(get16(sent(Nac_ConfigAccessUserUclGroupIpMsg{}), 62), 53);  // the nested image included
}

TEST_F(FixedLayout, StatesATableLengthAbove255InFullUnlessTheHostReversesAndKeepsItsLowByte) {
    EXPECT_EQ(get16(sent(Nac_UserDataFlowQueryAckMsg{}), 270), in_full_or_shortened(264, 264 - 256));
    EXPECT_EQ(get16(sent(Nac_RadiusDaclRule{}), 274), in_full_or_shortened(265, 265 - 256));
}

TEST_F(FixedLayout, StartsNestedImagesWhereverTheirFieldStands) {
    Nac_UserDataFlowQueryAckMsg answer = {};
    answer.f1.f3.f0 = kCfg.f0;
    const Bytes image = sent(answer);
    ASSERT_EQ(image.size(), 280U);
    EXPECT_EQ(get32(image, 12), 4U);            // f1's image
    EXPECT_EQ(get32(image, 16), 0U - 236U);     // its soffset
    EXPECT_EQ(get32(image, 12 + 72), 4U);       // its f3's image, at 84
    EXPECT_EQ(get32(image, 84 + 4), 0U - 36U);  // soffset
    EXPECT_EQ(get32(image, 84 + 8), 0x05060708U);
}

// ---- what readers accept -----------------------------------------------------------------------------

TEST_F(WireFormat, SlotsPastTheEndOfAShorterVtableAreAbsent) {
    Bytes bytes = hex(kCfgBytes);
    for (std::uint16_t length = 0; length <= 12; ++length) {
        SCOPED_TRACE(length);
        put16(bytes, 4, length);
        // A slot that the length does not reach to its last byte is not there.
        expect_cfg(*Unpacked<Nac_UserDataFlowCfg>(bytes, 0xAA),
                   {length >= 6 ? kCfg.f0 : 0, length >= 8 ? kCfg.f1 : 0, length >= 10 ? kCfg.f2 : 0,
                    length >= 12 ? kCfg.f3 : 0});
    }
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(WireFormat, SlotsOfALongerVtableAreIgnoredWhateverTheyHold) {
    expect_cfg(*Unpacked<Nac_UserDataFlowCfg>(hex("14 00 00 00"              // root reference: table at 20
                                                  "10 00 24 00"              // vtable with two slots too many
                                                  "04 00 0c 00 14 00 1c 00"  // offsets of f0 to f3
                                                  "ff ff 01 00"              // offsets of fields 4 and 5
                                                  "10 00 00 00"              // soffset
                                                  "08 07 06 05 04 03 02 01"  // f0
                                                  "18 17 16 15 14 13 12 11"  // f1
                                                  "28 27 26 25 24 23 22 21"  // f2
                                                  "38 37 36 35 34 33 32 31")),  // f3
               kCfg);
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(WireFormat, SlotOfZeroMeansAbsentThoughTheFieldHasItsPlace) {
    Bytes bytes = hex(kCfgBytes);
    put16(bytes, 12, 0);  // f2's slot
    expect_cfg(*Unpacked<Nac_UserDataFlowCfg>(bytes, 0xAA), {kCfg.f0, kCfg.f1, 0, kCfg.f3});
}

TEST_F(WireFormat, AbsentNestedTableAndVectorReadAsZeroAndEmpty) {
    const Bytes no_slots = hex("08 00 00 00 04 00 04 00 04 00 00 00");  // vtable length 4
    EXPECT_TRUE(Unpacked<Nac_UserDataFlowQueryAckMsg>(no_slots, 0xAA).all(0));
    EXPECT_TRUE(Unpacked<Nac_UserDataFlowMsg>(no_slots, 0xAA).all(0));
    EXPECT_TRUE(Unpacked<Nac_L2NotifyNacUserOfflineMsg>(no_slots, 0xAA).all(0));
}

TEST_F(WireFormat, TableVtableAndFieldMayStandAtOddPositions) {
    const Unpacked<Nac_UserDataFlowCfg> cfg(
        hex("15 00 00 00"                          // root reference: 21
            "ee"                                   // unused
            "0c 00 24 00 05 00 00 00 00 00 00 00"  // vtable, at 5: f0 only
            "ee ee ee ee"                          // unused
            "10 00 00 00"                          // soffset 16
            "ee"                                   // unused
            "08 07 06 05 04 03 02 01"));           // f0, at 26
    expect_cfg(*cfg, {kCfg.f0, 0, 0, 0});
}

TEST_F(WireFormat, NumberListsHaveNoAlignment) {
    const Unpacked<Nac_SetUserTableMsg> words(only_field(15,
                                                         "05 00 00 00"     // f15: vector one byte further on
                                                         "ee"              // unused
                                                         "02 00 00 00"     // count
                                                         "01 02 03 04"));  // two u16
    ASSERT_EQ(words->f15_count, 2U);
    EXPECT_EQ(words->f15[0], 0x0201);
    EXPECT_EQ(words->f15[1], 0x0403);
    const Unpacked<Nac_SetUserTableMsg> longs(only_field(52,
                                                         "05 00 00 00"     // f52
                                                         "ee"              // unused
                                                         "01 00 00 00"     // count
                                                         "01 02 03 04"));  // one u32
    ASSERT_EQ(longs->f52_count, 1U);
    EXPECT_EQ(longs->f52[0], 0x04030201U);
}

TEST_F(WireFormat, BuffersMayStandAtAnyAddress) {
    const Bytes bytes = hex(kCfgBytes);
    alignas(8) std::array<std::uint8_t, 64> storage;
    for (std::size_t shift = 0; shift < 8; ++shift) {
        SCOPED_TRACE(shift);
        storage.fill(0xEE);
        std::uint32_t length = 52;
        EXPECT_EQ(Nac_UserDataFlowCfg__pack(&kCfg, storage.data() + shift, &length), 0U);
        EXPECT_TRUE(same_bytes({storage.data() + shift, storage.data() + shift + 52}, bytes));
        EXPECT_EQ(storage[shift + 52], 0xEE);
        Nac_UserDataFlowCfg cfg = {};
        EXPECT_EQ(Nac_UserDataFlowCfg__unpack(storage.data() + shift, 52, &cfg), 32U);
        expect_cfg(cfg, kCfg);
    }
}

TEST_F(WireFormat, TableLengthIsNeverChecked) {
    for (const std::uint16_t length : {std::uint16_t{0}, std::uint16_t{3}, std::uint16_t{0xFFFF}}) {
        Bytes bytes = hex(kCfgBytes);
        put16(bytes, 6, length);
        expect_cfg(*Unpacked<Nac_UserDataFlowCfg>(bytes), kCfg);
    }
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(WireFormat, ReaderAcceptsAVectorWithoutElements) {
    const Unpacked<Nac_UserDataFlowMsg> list(only_field(0, "04 00 00 00 00 00 00 00"), 0xAA);
    EXPECT_TRUE(list.all(0));
    EXPECT_EQ(services.allocations().size(), 0U);
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(WireFormat, ReferencesCountFromTheirOwnPositionSoTwoMayMeetInOneTable) {
    const Unpacked<Nac_UserDataFlowMsg> list(only_field(0,
                                                        "04 00 00 00"        // f0, at 14
                                                        "02 00 00 00"        // count
                                                        "0e 00 00 00"        // element 0: from 22 to 36
                                                        "0a 00 00 00"        // element 1: from 26 to 36
                                                        "06 00 08 00 04 00"  // the element's vtable: only f0
                                                        "06 00 00 00"        // soffset
                                                        "09 00 00 00"));     // f0
    ASSERT_EQ(list->f0_count, 2U);
    EXPECT_EQ(list->f0[0].f0, 9U);
    EXPECT_EQ(list->f0[1].f0, 9U);
}

// ---- both layouts of every type that has an image ----------------------------------------------------

class EitherLayout : public MessageTest, public testing::WithParamInterface<MessageExpectations> {
  protected:
    Bytes packed(const Bytes& record) const {
        Bytes bytes(512);
        std::uint32_t length = 512;
        EXPECT_EQ(type.pack(record.data(), bytes.data(), &length), 0U);
        bytes.resize(length);
        return bytes;
    }
    Bytes sent(const Bytes& record) const {
        EXPECT_EQ(type.send(1, record.data(), 1), 0U);
        return bus.sends().back().messages.at(0);
    }
    Bytes unpacked(const Bytes& bytes) const {
        GuardedBuffer buffer(bytes);
        Bytes record(type.record_bytes, 0xAA);
        EXPECT_EQ(type.unpack(buffer.data(), buffer.size(), record.data()), type.record_bytes);
        return record;
    }

    const MessageExpectations& type = GetParam();
};
INSTANTIATE_TEST_SUITE_P(All, EitherLayout, testing::ValuesIn(messages_that_travel(Travels::as_image)),
                         message_name);

TEST_P(EitherLayout, DecodesToTheSameRecord) {
    Bytes record(type.record_bytes);
    for (std::size_t i = 0; i < record.size(); ++i) record[i] = static_cast<std::uint8_t>(i % 255 + 1);
    const Bytes compact = packed(record);
    const Bytes image = sent(record);
    EXPECT_NE(compact, image);
    const Bytes from_compact = unpacked(compact);
    EXPECT_TRUE(same_bytes(unpacked(image), from_compact));
    // Nothing was lost on the way, and both carry every field.
    EXPECT_TRUE(same_bytes(packed(from_compact), compact));
    EXPECT_TRUE(same_bytes(sent(from_compact), image));
    EXPECT_EQ(logged(), Lines{});
}

TEST_P(EitherLayout, DecodesToZeroWhenEveryFieldIsZero) {
    const Bytes zero(type.record_bytes);
    EXPECT_EQ(unpacked(packed(zero)), zero);
    EXPECT_EQ(unpacked(sent(zero)), zero);
}

}  // namespace
