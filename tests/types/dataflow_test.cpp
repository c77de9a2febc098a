// SPDX-License-Identifier: Apache-2.0
// The data-flow messages: their bytes in both layouts, and what their unpack does with faults.
#include "tests/support/message_checks.h"

namespace {

using namespace tests;
using enum AfterHeaderFault;

class Dataflow : public MessageTest {};

constexpr Nac_UserDataFlowCfg kCfg = {0x0102030405060708, 0x1112131415161718, 0x2122232425262728,
                                      0x3132333435363738};
constexpr Nac_UserDataFlowInfo kInfo = {word(0x80), word(0x81), kCfg, kCfg, kCfg, kCfg};
constexpr Nac_UserDataFlowInfo kSparseInfo = {0, word(0x81), {}, {0, quad(0x91), 0, 0}, {}, {}};
constexpr Nac_UserDataFlowQueryMsg kQuery = {word(0x80), word(0x81)};
constexpr Nac_UserDataFlowQueryAckMsg kQueryAck = {word(0x70), kInfo};

// Settings as a table inside another message: vtable, then table.
constexpr const char* kCfgTable =
    "0c 00"                     // vtable length
    "24 00"                     // table length: soffset and four u64
    "04 00 0c 00 14 00 1c 00"   // places of f0 to f3
    "0c 00 00 00"               // soffset: vtable 12 before the table
    "08 07 06 05 04 03 02 01"   // f0
    "18 17 16 15 14 13 12 11"   // f1
    "28 27 26 25 24 23 22 21"   // f2
    "38 37 36 35 34 33 32 31";  // f3
constexpr const char* kEmptyCfgTable =
    "0c 00"                    // vtable length
    "04 00"                    // table length: the soffset
    "00 00 00 00 00 00 00 00"  // no field
    "0c 00 00 00";             // soffset

// Information with everything in it, as kInfo.
const std::string& info_table() {
    static const std::string text =
        join({"10 00"                    // vtable length
              "1c 00"                    // table length
              "04 00 08 00"              // places of f0, f1
              "0c 00 10 00 14 00 18 00"  // places of f2 to f5
              "10 00 00 00"              // soffset
              "80 22 33 44"              // f0
              "81 22 33 44"              // f1
              "1c 00 00 00"              // f2: table 28 on
              "48 00 00 00"              // f3: table 72 on
              "74 00 00 00"              // f4: table 116 on
              "a0 00 00 00",             // f5: table 160 on
              kCfgTable, kCfgTable, kCfgTable, kCfgTable});
    return text;
}

// As kSparseInfo.
const std::string& sparse_info_table() {
    static const std::string text =
        join({"10 00"                     // vtable length
              "18 00"                     // table length
              "00 00 04 00"               // f0 absent, f1
              "08 00 0c 00 10 00 14 00"   // places of f2 to f5
              "10 00 00 00"               // soffset
              "81 22 33 44"               // f1
              "1c 00 00 00"               // f2: table 28 on
              "28 00 00 00"               // f3: table 40 on
              "3c 00 00 00"               // f4: table 60 on
              "48 00 00 00",              // f5: table 72 on
              kEmptyCfgTable,             // f2
              "0c 00"                     // f3: vtable length
              "0c 00"                     // f3: table length
              "00 00 04 00 00 00 00 00"   // f3: only f1
              "0c 00 00 00"               // f3: soffset
              "91 22 33 44 55 66 77 88",  // f3: f1
              kEmptyCfgTable,             // f4
              kEmptyCfgTable});           // f5
    return text;
}

const std::string& empty_info_table() {
    static const std::string text =
        join({"10 00"                    // vtable length
              "14 00"                    // table length: soffset, references
              "00 00 00 00"              // f0, f1 absent
              "04 00 08 00 0c 00 10 00"  // places of f2 to f5
              "10 00 00 00"              // soffset
              "1c 00 00 00"              // f2: table 28 on
              "28 00 00 00"              // f3: table 40 on
              "34 00 00 00"              // f4: table 52 on
              "40 00 00 00",             // f5: table 64 on
              kEmptyCfgTable, kEmptyCfgTable, kEmptyCfgTable, kEmptyCfgTable});
    return text;
}

// The fixed image of kCfg, alone or inside another one.
constexpr const char* kCfgImage =
    "04 00 00 00"              // root reference
    "dc ff ff ff"              // soffset -36: vtable at 40
    "08 07 06 05 04 03 02 01"  // f0
    "18 17 16 15 14 13 12 11"  // f1
    "28 27 26 25 24 23 22 21"  // f2
    "38 37 36 35 34 33 32 31"  // f3
    "0c 00 24 00"              // vtable length, table length
    "04 00 0c 00 14 00 1c 00"  // places of f0 to f3
    "00 00 00 00";             // padding

const std::string& info_image() {
    static const std::string text =
        join({"04 00 00 00"                 // root reference
              "14 ff ff ff"                 // soffset -236: vtable at 240
              "80 22 33 44"                 // f0
              "81 22 33 44",                // f1
              kCfgImage,                    // f2 at 16
              kCfgImage,                    // f3 at 72
              kCfgImage,                    // f4 at 128
              kCfgImage,                    // f5 at 184
              "10 00 ec 00"                 // vtable length, table length
              "04 00 08 00"                 // places of f0, f1
              "0c 00 44 00 7c 00 b4 00"});  // places of f2 to f5
    return text;
}

// ---- Nac_UserDataFlowCfg ----

TEST_F(Dataflow, CfgRecordIsFourWordsOf64Bits) {
    using R = Nac_UserDataFlowCfg;
    EXPECT_EQ(sizeof(R), 32U);
    EXPECT_EQ((Offsets{offsetof(R, f0), offsetof(R, f1), offsetof(R, f2), offsetof(R, f3)}),
              (Offsets{0, 8, 16, 24}));
}

TEST_F(Dataflow, CfgWithAllFieldsPacksTo52Bytes) {
    EXPECT_BYTES(packed(kCfg), join({"10 00 00 00", kCfgTable}));  // root reference: table at 16
}

TEST_F(Dataflow, CfgOfZeroesPacksTo20Bytes) {
    EXPECT_BYTES(packed(Nac_UserDataFlowCfg{}),
                 "10 00 00 00"              // root reference
                 "0c 00 04 00"              // vtable length, table length
                 "00 00 00 00 00 00 00 00"  // no field
                 "0c 00 00 00");            // soffset
}

TEST_F(Dataflow, CfgLeavesOutFieldsThatAreZero) {
    EXPECT_BYTES(packed(Nac_UserDataFlowCfg{0, kCfg.f1, 0, kCfg.f3}),
                 "10 00 00 00"                // root reference
                 "0c 00 14 00"                // vtable length, table length
                 "00 00 04 00 00 00 0c 00"    // f1 at 4, f3 at 12
                 "0c 00 00 00"                // soffset
                 "18 17 16 15 14 13 12 11"    // f1
                 "38 37 36 35 34 33 32 31");  // f3
}

TEST_F(Dataflow, CfgGrowsBy8BytesAField) {
    using R = Nac_UserDataFlowCfg;
    EXPECT_EQ(packed_size(R{}), 20U);
    expect_each_costs(8, R{}, &R::f0, &R::f1, &R::f2, &R::f3);
}

TEST_F(Dataflow, CfgTravelsAsItsImageOf56Bytes) {
    expect_sends_image("Nac_UserDataFlowCfg", 1739711260, kCfg, kCfgImage);
}

TEST_F(Dataflow, CfgImageWritesZeroFieldsToo) {
    EXPECT_BYTES(sent(Nac_UserDataFlowCfg{}),
                 "04 00 00 00"              // root reference
                 "dc ff ff ff"              // soffset -36
                 "00 00 00 00 00 00 00 00"  // f0
                 "00 00 00 00 00 00 00 00"  // f1
                 "00 00 00 00 00 00 00 00"  // f2
                 "00 00 00 00 00 00 00 00"  // f3
                 "0c 00 24 00"              // vtable length, table length
                 "04 00 0c 00 14 00 1c 00"  // places of f0 to f3
                 "00 00 00 00");            // padding
}

TEST_F(Dataflow, CfgUnpacksAlikeFromBothLayouts) { expect_both_layouts_unpack_to(kCfg); }

TEST_F(Dataflow, CfgReadsWholeFieldsOnly) {
    expect_reads_whole_fields_only<Nac_UserDataFlowCfg>(packed(kCfg), {8, 8, 8, 8});
}

TEST_F(Dataflow, CfgReportsBadArguments) {
    expect_argument_faults<Nac_UserDataFlowCfg>("Nac_UserDataFlowCfg");
}

TEST_F(Dataflow, CfgIsUntouchedAfterAHeaderFault) {
    expect_header_faults<Nac_UserDataFlowCfg>(untouched, "Nac_UserDataFlowCfg_unpack");
}

TEST_F(Dataflow, CfgPackRefusals) { expect_pack_refusals("Nac_UserDataFlowCfg", kCfg, 52); }

TEST_F(Dataflow, CfgFreeDoesNothing) { expect_free_does_nothing<Nac_UserDataFlowCfg>(); }

// ---- Nac_UserDataFlowInfo ----

TEST_F(Dataflow, InfoRecordHoldsFourSettingsInline) {
    using R = Nac_UserDataFlowInfo;
    EXPECT_EQ(sizeof(R), 136U);
    EXPECT_EQ((Offsets{offsetof(R, f0), offsetof(R, f1), offsetof(R, f2), offsetof(R, f3), offsetof(R, f4),
                       offsetof(R, f5)}),
              (Offsets{0, 4, 8, 40, 72, 104}));
}

TEST_F(Dataflow, InfoWithAllFieldsPacksTo240Bytes) {
    EXPECT_BYTES(packed(kInfo), join({"14 00 00 00", info_table()}));  // root reference: table at 20
    EXPECT_EQ(packed(kInfo).size(), 240U);
}

TEST_F(Dataflow, InfoOfZeroesStillHoldsItsFourSettingsIn104Bytes) {
    EXPECT_BYTES(packed(Nac_UserDataFlowInfo{}), join({"14 00 00 00", empty_info_table()}));
    EXPECT_EQ(packed(Nac_UserDataFlowInfo{}).size(), 104U);
}

TEST_F(Dataflow, InfoLeavesOutFieldsThatAreZeroButNoSettings) {
    EXPECT_BYTES(packed(kSparseInfo), join({"14 00 00 00", sparse_info_table()}));
}

TEST_F(Dataflow, InfoGrowsByItsFieldsAndThoseOfItsSettings) {
    using R = Nac_UserDataFlowInfo;
    EXPECT_EQ(packed_size(R{}), 104U);
    expect_each_costs(4, R{}, &R::f0, &R::f1);
    EXPECT_EQ(packed_size(R{0, 0, {1, 0, 0, 0}, {}, {}, {}}), 112U);
    EXPECT_EQ(packed_size(R{0, 0, {}, {1, 2, 0, 0}, {}, {}}), 120U);
    EXPECT_EQ(packed_size(R{0, 0, {}, {}, {1, 2, 3, 0}, {}}), 128U);
    EXPECT_EQ(packed_size(R{0, 0, {}, {}, {}, {1, 2, 3, 4}}), 136U);
    EXPECT_EQ(packed_size(R{0, 1, kCfg, {0, 0, 0, 5}, {}, kCfg}), 104U + 4 + 32 + 8 + 32);
    EXPECT_EQ(packed_size(kInfo), 240U);
}

TEST_F(Dataflow, InfoTravelsAsItsImageOf256Bytes) {
    expect_sends_image("Nac_UserDataFlowInfo", 1306267774, kInfo, info_image());
    EXPECT_EQ(sent(kInfo).size(), 256U);
}

TEST_F(Dataflow, InfoUnpacksAlikeFromBothLayouts) {
    expect_both_layouts_unpack_to(kInfo);
    expect_both_layouts_unpack_to(kSparseInfo);
    expect_both_layouts_unpack_to(Nac_UserDataFlowInfo{});
}

TEST_F(Dataflow, InfoReportsBadArguments) {
    expect_argument_faults<Nac_UserDataFlowInfo>("Nac_UserDataFlowInfo");
}

TEST_F(Dataflow, InfoIsClearedAfterAHeaderFault) {
    expect_header_faults<Nac_UserDataFlowInfo>(cleared, "Nac_UserDataFlowInfo_unpack_non_root");
}

TEST_F(Dataflow, BadRootReferenceClearsInfoButLeavesCfg) {
    const Bytes bad = hex("ff 00 00 00");
    EXPECT_TRUE(Unpacked<Nac_UserDataFlowInfo>(bad, 0xAA).all(0));
    EXPECT_TRUE(Unpacked<Nac_UserDataFlowCfg>(bad, 0xAA).all(0xAA));
    EXPECT_EQ(logged(),
              (Lines{"Nac_UserDataFlowInfo_unpack_non_root: [KAPLO]:Table offset(255) is out of range(4 - 4)",
                     "Nac_UserDataFlowCfg_unpack: [KAPLO]:Table offset(255) is out of range(4 - 4)"}));
}

TEST_F(Dataflow, InfoKeepsWhatItReadBeforeABadSetting) {
    Bytes bytes = packed(kInfo);
    put32(bytes, 36, 0x1000);  // f3: table far behind the buffer
    const Unpacked<Nac_UserDataFlowInfo> unpacked(bytes);
    expect_unpacks_to(packed(*unpacked), Nac_UserDataFlowInfo{kInfo.f0, kInfo.f1, kCfg, {}, {}, {}});
}

TEST_F(Dataflow, FaultsOfASettingCarryItsNestedName) {
    Bytes table_outside = packed(kInfo);
    put32(table_outside, 36, 0x1000);  // f3's reference: table at 36 + 4096
    Bytes vtable_outside = packed(kInfo);
    put32(vtable_outside, 108, 108);  // f3's soffset: vtable at 0
    Bytes vtable_too_long = packed(kInfo);
    put16(vtable_too_long, 96, 200);  // f3's vtable length, 144 before the end
    services.reset();
    for (const Bytes& bytes : {table_outside, vtable_outside, vtable_too_long})
        EXPECT_EQ(Unpacked<Nac_UserDataFlowInfo>(bytes)->f1, kInfo.f1);
    const std::string name = "Nac_UserDataFlowCfg_unpack_non_root: [KAPLO]:";
    EXPECT_EQ(logged(), (Lines{name + "Table offset(4132) is out of range(4 - 240)",
                               name + "Vtable offset(108) is out of range(4 - 236)",
                               name + "Vtable Len(200) is out of range(0 - 144)"}));
}

TEST_F(Dataflow, InfoPackRefusals) { expect_pack_refusals("Nac_UserDataFlowInfo", kInfo, 240); }

TEST_F(Dataflow, InfoFreeDoesNothing) { expect_free_does_nothing<Nac_UserDataFlowInfo>(); }

// ---- Nac_UserDataFlowMsg ----

// A list over an array of the test's own.
template <std::size_t count>
Nac_UserDataFlowMsg list_of(Nac_UserDataFlowInfo (&elements)[count]) {
    return {count, elements};
}

TEST_F(Dataflow, ListRecordIsACountAndAPointer) {
    using R = Nac_UserDataFlowMsg;
    EXPECT_EQ(sizeof(R), 16U);
    EXPECT_EQ((Offsets{offsetof(R, f0_count), offsetof(R, f0)}), (Offsets{0, 8}));
}

TEST_F(Dataflow, EmptyListPacksTo14Bytes) {
    EXPECT_BYTES(packed(Nac_UserDataFlowMsg{}),
                 "0a 00 00 00"    // root reference: table at 10
                 "06 00 04 00"    // vtable length, table length
                 "00 00"          // f0 absent
                 "06 00 00 00");  // soffset
}

TEST_F(Dataflow, EmptyListUnpacksToANullPointer) {
    const Unpacked<Nac_UserDataFlowMsg> list(hex("0a 00 00 00 06 00 04 00 00 00 06 00 00 00"), 0xAA);
    EXPECT_EQ(list->f0_count, 0U);
    EXPECT_EQ(list->f0, nullptr);
    EXPECT_EQ(cache_allocations(), std::vector<Tag>{});
}

TEST_F(Dataflow, ListOfOneFullElement) {
    Nac_UserDataFlowInfo elements[] = {kInfo};
    EXPECT_BYTES(packed(list_of(elements)), join({"0a 00 00 00"   // root reference
                                                  "06 00 10 00"   // vtable length, table length 12 + 4
                                                  "04 00"         // place of f0
                                                  "06 00 00 00"   // soffset
                                                  "04 00 00 00"   // f0: vector right behind
                                                  "01 00 00 00"   // count
                                                  "14 00 00 00",  // element 0: table at 22 + 20
                                                  info_table()}));
}

TEST_F(Dataflow, ListWritesElementAfterElementEachWithItsSettings) {
    Nac_UserDataFlowInfo elements[] = {{}, kSparseInfo};
    EXPECT_BYTES(packed(list_of(elements)), join({"0a 00 00 00"   // root reference
                                                  "06 00 14 00"   // vtable length, table length 12 + 8
                                                  "04 00"         // place of f0
                                                  "06 00 00 00"   // soffset
                                                  "04 00 00 00"   // f0: vector right behind
                                                  "02 00 00 00"   // count
                                                  "18 00 00 00"   // element 0: table at 22 + 24
                                                  "78 00 00 00",  // element 1: table at 26 + 120
                                                  empty_info_table(), sparse_info_table()}));
}

TEST_F(Dataflow, ListGrowsBy22And4AnElementAndTheElements) {
    Nac_UserDataFlowInfo elements[] = {{}, kInfo, kSparseInfo};
    EXPECT_EQ(packed_size(Nac_UserDataFlowMsg{}), 14U);
    EXPECT_EQ(packed_size(Nac_UserDataFlowMsg{1, elements}), 22U + 4 + 100);
    EXPECT_EQ(packed_size(Nac_UserDataFlowMsg{2, elements}), 22U + 8 + 100 + 236);
    EXPECT_EQ(packed_size(Nac_UserDataFlowMsg{3, elements}), 22U + 12 + 100 + 236 + 112);
    EXPECT_EQ(packed_size(Nac_UserDataFlowMsg{1, elements + 1}), 22U + 4 + 236);
}

TEST_F(Dataflow, ListTravelsCompactly) {
    Nac_UserDataFlowInfo elements[] = {kInfo};
    expect_sends_compact("Nac_UserDataFlowMsg", 405055467, list_of(elements),
                         join({"0a 00 00 00"   // root reference
                               "06 00 10 00"   // vtable length, table length
                               "04 00"         // place of f0
                               "06 00 00 00"   // soffset
                               "04 00 00 00"   // f0
                               "01 00 00 00"   // count
                               "14 00 00 00",  // element 0
                               info_table()}));
}

TEST_F(Dataflow, ListUnpacksToItsElements) {
    Nac_UserDataFlowInfo elements[] = {kInfo, {}, kSparseInfo};
    expect_unpacks_to(packed(list_of(elements)), list_of(elements));
    const Unpacked<Nac_UserDataFlowMsg> list(packed(list_of(elements)));
    ASSERT_EQ(list->f0_count, 3U);
    EXPECT_EQ(std::memcmp(list->f0, elements, sizeof elements), 0);
}

TEST_F(Dataflow, ListElementsMayBeFixedImages) {
    const Unpacked<Nac_UserDataFlowMsg> list(
        hex(join({"0a 00 00 00"      // root reference
                  "06 00 10 00"      // vtable length, table length
                  "04 00"            // place of f0
                  "06 00 00 00"      // soffset
                  "04 00 00 00"      // f0
                  "01 00 00 00",     // count
                  info_image()})));  // whose first 4 bytes are the reference
    ASSERT_EQ(list->f0_count, 1U);
    EXPECT_EQ(std::memcmp(list->f0, &kInfo, sizeof kInfo), 0);
}

TEST_F(Dataflow, ListAllocatesAndReleasesUnderItsNames) {
    Nac_UserDataFlowInfo elements[] = {kInfo, kInfo};
    const Bytes bytes = packed(list_of(elements));
    services.reset();
    Unpacked<Nac_UserDataFlowMsg> list(bytes);
    EXPECT_EQ(cache_allocations(), (std::vector<Tag>{{272, 12, "Nac_UserDataFlowMsg_unpack_non_root"}}));
    EXPECT_EQ(services.allocations().front().block, list->f0);

    Nac_UserDataFlowMsg_free__unpacked(&list.record());
    EXPECT_EQ(list->f0, nullptr);
    EXPECT_EQ(list->f0_count, 2U);
    Nac_UserDataFlowMsg_free__unpacked(&list.record());
    Nac_UserDataFlowMsg_free__unpacked(nullptr);
    EXPECT_EQ(release_callers(), Lines{"Nac_UserDataFlowMsg_free_unpacked"});
}

TEST_F(Dataflow, FailedListAllocationIsLoggedWithSixteenBlanks) {
    Nac_UserDataFlowInfo elements[] = {kInfo, kInfo};
    const Bytes bytes = packed(list_of(elements));
    services.reset();
    services.fail_allocation(0);
    const Unpacked<Nac_UserDataFlowMsg> list(bytes);
    EXPECT_EQ(list->f0_count, 2U);
    EXPECT_EQ(list->f0, nullptr);
    EXPECT_EQ(logged(), Lines{"Nac_UserDataFlowMsg_unpack_non_root: [KAPLO]:Malloc unpack data unsuccess,"
                              "                size(272)"});
    EXPECT_EQ(logged_categories(), std::vector<std::uint32_t>{12});
}

TEST_F(Dataflow, ListWithADamagedElementIsReleasedAndKeepsItsCount) {
    Nac_UserDataFlowInfo elements[] = {{}, {}, {}};
    Bytes bytes = packed(list_of(elements));
    put32(bytes, 30, 0x1000);  // element 2: table far behind the buffer
    services.reset();
    const Unpacked<Nac_UserDataFlowMsg> list(bytes);
    EXPECT_EQ(list->f0_count, 3U);
    EXPECT_EQ(list->f0, nullptr);
    EXPECT_EQ(release_callers(), Lines{"Nac_UserDataFlowMsg_free_unpacked"});
    EXPECT_EQ(logged(), Lines{"Nac_UserDataFlowInfo_unpack_non_root: [KAPLO]:Table offset(4126) is out of "
                              "range(4 - 334)"});
}

TEST_F(Dataflow, ListWithADamagedSettingInAnElementIsReleasedToo) {
    Nac_UserDataFlowInfo elements[] = {{}, {}};
    Bytes bytes = packed(list_of(elements));
    put32(bytes, 50, 0xFFFFFFFF);  // element 0's f2: a reference that wraps
    services.reset();
    const Unpacked<Nac_UserDataFlowMsg> list(bytes);
    EXPECT_EQ(list->f0_count, 2U);
    EXPECT_EQ(list->f0, nullptr);
    EXPECT_EQ(release_callers(), Lines{"Nac_UserDataFlowMsg_free_unpacked"});
    EXPECT_EQ(logged(), Lines{});
}

TEST_F(Dataflow, ListCountAtTheLimitFailsBeforeAnyAllocation) {
    Nac_UserDataFlowInfo elements[] = {{}};
    Bytes bytes = packed(list_of(elements));
    for (const std::uint32_t count :
         {0x40000000U, 0xFFFFFFFFU, 0x3FFFFFFFU, 27U}) {  // room for 26 references
        put32(bytes, 18, count);
        services.reset();
        const Unpacked<Nac_UserDataFlowMsg> list(bytes, 0xAA);
        EXPECT_TRUE(list.all(0)) << count;
        EXPECT_TRUE(services.allocations().empty());
        EXPECT_EQ(logged(), Lines{});
    }
}

TEST_F(Dataflow, ListReportsBadArguments) {
    expect_argument_faults<Nac_UserDataFlowMsg>("Nac_UserDataFlowMsg");
}

TEST_F(Dataflow, ListIsClearedAfterAHeaderFault) {
    expect_header_faults<Nac_UserDataFlowMsg>(cleared, "Nac_UserDataFlowMsg_unpack_non_root");
}

TEST_F(Dataflow, ListPackRefusals) {
    Nac_UserDataFlowInfo elements[] = {kInfo};
    expect_pack_refusals("Nac_UserDataFlowMsg", list_of(elements), 262);
}

// ---- Nac_UserDataFlowQueryMsg ----

TEST_F(Dataflow, QueryRecordIsTwoWords) {
    using R = Nac_UserDataFlowQueryMsg;
    EXPECT_EQ(sizeof(R), 8U);
    EXPECT_EQ((Offsets{offsetof(R, f0), offsetof(R, f1)}), (Offsets{0, 4}));
}

TEST_F(Dataflow, QueryWithAllFieldsPacksTo24Bytes) {
    EXPECT_BYTES(packed(kQuery),
                 "0c 00 00 00"    // root reference
                 "08 00 0c 00"    // vtable length, table length
                 "04 00 08 00"    // places of f0, f1
                 "08 00 00 00"    // soffset
                 "80 22 33 44"    // f0
                 "81 22 33 44");  // f1
}

TEST_F(Dataflow, QueryOfZeroesPacksTo16Bytes) {
    EXPECT_BYTES(packed(Nac_UserDataFlowQueryMsg{}),
                 "0c 00 00 00"    // root reference
                 "08 00 04 00"    // vtable length, table length
                 "00 00 00 00"    // no field
                 "08 00 00 00");  // soffset
}

TEST_F(Dataflow, QueryLeavesOutAZero) {
    EXPECT_BYTES(packed(Nac_UserDataFlowQueryMsg{0, word(0x81)}),
                 "0c 00 00 00"    // root reference
                 "08 00 08 00"    // vtable length, table length
                 "00 00 04 00"    // f0 absent, f1
                 "08 00 00 00"    // soffset
                 "81 22 33 44");  // f1
}

TEST_F(Dataflow, QueryGrowsBy4BytesAField) {
    using R = Nac_UserDataFlowQueryMsg;
    EXPECT_EQ(packed_size(R{}), 16U);
    expect_each_costs(4, R{}, &R::f0, &R::f1);
}

TEST_F(Dataflow, QueryTravelsAsItsImageOf24Bytes) {
    expect_sends_image("Nac_UserDataFlowQueryMsg", 760077815, kQuery,
                       "04 00 00 00"    // root reference
                       "f4 ff ff ff"    // soffset -12: vtable at 16
                       "80 22 33 44"    // f0
                       "81 22 33 44"    // f1
                       "08 00 0c 00"    // vtable length, table length
                       "04 00 08 00");  // places of f0, f1
}

TEST_F(Dataflow, QueryUnpacksAlikeFromBothLayouts) { expect_both_layouts_unpack_to(kQuery); }

TEST_F(Dataflow, QueryReadsWholeFieldsOnly) {
    expect_reads_whole_fields_only<Nac_UserDataFlowQueryMsg>(packed(kQuery), {4, 4});
}

TEST_F(Dataflow, QueryReportsBadArguments) {
    expect_argument_faults<Nac_UserDataFlowQueryMsg>("Nac_UserDataFlowQueryMsg");
}

TEST_F(Dataflow, QueryIsUntouchedAfterAHeaderFault) {
    expect_header_faults<Nac_UserDataFlowQueryMsg>(untouched, "Nac_UserDataFlowQueryMsg_unpack");
}

TEST_F(Dataflow, QueryPackRefusals) { expect_pack_refusals("Nac_UserDataFlowQueryMsg", kQuery, 24); }

TEST_F(Dataflow, QueryFreeDoesNothing) { expect_free_does_nothing<Nac_UserDataFlowQueryMsg>(); }

// ---- Nac_UserDataFlowQueryAckMsg ----

TEST_F(Dataflow, QueryAnswerRecordHoldsItsInformationInline) {
    using R = Nac_UserDataFlowQueryAckMsg;
    EXPECT_EQ(sizeof(R), 144U);
    EXPECT_EQ((Offsets{offsetof(R, f0), offsetof(R, f1)}), (Offsets{0, 8}));
}

TEST_F(Dataflow, QueryAnswerWithAllFieldsPacksTo260Bytes) {
    EXPECT_BYTES(packed(kQueryAck), join({"0c 00 00 00"   // root reference
                                          "08 00 0c 00"   // vtable length, table length
                                          "04 00 08 00"   // places of f0, f1
                                          "08 00 00 00"   // soffset
                                          "70 22 33 44"   // f0
                                          "14 00 00 00",  // f1: table at 20 + 20
                                          info_table()}));
}

TEST_F(Dataflow, QueryAnswerOfZeroesPacksTo120Bytes) {
    EXPECT_BYTES(packed(Nac_UserDataFlowQueryAckMsg{}), join({"0c 00 00 00"   // root reference
                                                              "08 00 08 00"   // vtable length, table length
                                                              "00 00 04 00"   // f0 absent, f1
                                                              "08 00 00 00"   // soffset
                                                              "14 00 00 00",  // f1: table at 16 + 20
                                                              empty_info_table()}));
    EXPECT_EQ(packed(Nac_UserDataFlowQueryAckMsg{}).size(), 120U);
}

TEST_F(Dataflow, QueryAnswerLeavesOutAZeroButNotItsInformation) {
    EXPECT_BYTES(packed(Nac_UserDataFlowQueryAckMsg{0, kSparseInfo}),
                 join({"0c 00 00 00"   // root reference
                       "08 00 08 00"   // vtable length, table length
                       "00 00 04 00"   // f0 absent, f1
                       "08 00 00 00"   // soffset
                       "14 00 00 00",  // f1
                       sparse_info_table()}));
}

TEST_F(Dataflow, QueryAnswerGrowsByItsFieldAndItsInformation) {
    using R = Nac_UserDataFlowQueryAckMsg;
    EXPECT_EQ(packed_size(R{}), 120U);
    expect_each_costs(4, R{}, &R::f0);
    expect_each_costs(4, R{0, kSparseInfo}, &R::f0);
    EXPECT_EQ(packed_size(R{0, kSparseInfo}), 20U + 112);
    EXPECT_EQ(packed_size(R{0, {1, 0, kCfg, {}, {}, {}}}), 120U + 4 + 32);
    EXPECT_EQ(packed_size(kQueryAck), 24U + 236);
}

TEST_F(Dataflow, QueryAnswerTravelsAsItsImageOf280Bytes) {
    expect_sends_image("Nac_UserDataFlowQueryAckMsg", 127434504, kQueryAck,
                       join({"04 00 00 00"                            // root reference
                             "f8 fe ff ff"                            // soffset -264: vtable at 268
                             "70 22 33 44",                           // f0
                             info_image(),                            // f1 at 12
                             "08 00",                                 // vtable length
                             in_full_or_shortened("08 01", "08 00"),  // table length 264
                             "04 00 08 00"                            // places of f0, f1
                             "00 00 00 00"}));                        // padding
    EXPECT_EQ(sent(kQueryAck).size(), 280U);
}

TEST_F(Dataflow, BothLayoutsOfTheQueryAnswerUnpackToTheSameRecord) {
    expect_both_layouts_unpack_to(kQueryAck);
    expect_both_layouts_unpack_to(Nac_UserDataFlowQueryAckMsg{0, kSparseInfo});
    const Unpacked<Nac_UserDataFlowQueryAckMsg> image(sent(kQueryAck));
    EXPECT_EQ(image->f0, kQueryAck.f0);
    EXPECT_EQ(std::memcmp(&image->f1, &kInfo, sizeof kInfo), 0);
}

TEST_F(Dataflow, QueryAnswerKeepsWhatItReadBeforeAFaultInItsInformation) {
    Bytes bytes = packed(kQueryAck);
    put32(bytes, 56, 0xFFFFFFFF);  // f3 of the information: a reference that wraps
    services.reset();
    const Unpacked<Nac_UserDataFlowQueryAckMsg> answer(bytes);
    EXPECT_EQ(logged(), Lines{});
    EXPECT_EQ(answer->f0, kQueryAck.f0);
    EXPECT_EQ(answer->f1.f0, kInfo.f0);
    EXPECT_EQ(answer->f1.f1, kInfo.f1);
    EXPECT_EQ(answer->f1.f2.f3, kCfg.f3);
    const Nac_UserDataFlowCfg rest[3] = {};
    EXPECT_EQ(std::memcmp(&answer->f1.f3, rest, sizeof rest), 0);
}

TEST_F(Dataflow, FaultsOfTheInformationInAnAnswerCarryItsNestedName) {
    Bytes bytes = packed(kQueryAck);
    put32(bytes, 40, 40);  // the information's soffset: vtable at 0
    const Unpacked<Nac_UserDataFlowQueryAckMsg> vtable_outside(bytes);
    EXPECT_EQ(vtable_outside->f0, kQueryAck.f0);
    EXPECT_EQ(logged_texts().back(), "[KAPLO]:Vtable offset(40) is out of range(4 - 256)");
    EXPECT_EQ(logged().back().substr(0, 37), "Nac_UserDataFlowInfo_unpack_non_root:");
}

TEST_F(Dataflow, QueryAnswerReportsBadArguments) {
    expect_argument_faults<Nac_UserDataFlowQueryAckMsg>("Nac_UserDataFlowQueryAckMsg");
}

TEST_F(Dataflow, QueryAnswerIsUntouchedAfterAHeaderFault) {
    expect_header_faults<Nac_UserDataFlowQueryAckMsg>(untouched, "Nac_UserDataFlowQueryAckMsg_unpack");
}

TEST_F(Dataflow, QueryAnswerPackRefusals) {
    expect_pack_refusals("Nac_UserDataFlowQueryAckMsg", kQueryAck, 260);
}

TEST_F(Dataflow, QueryAnswerFreeDoesNothing) { expect_free_does_nothing<Nac_UserDataFlowQueryAckMsg>(); }

// ---- the module ----

TEST_F(Dataflow, ModuleRegistersItsFiveTypesInOrder) {
    expect_registers<Nac_UserDataFlowCfg, Nac_UserDataFlowInfo, Nac_UserDataFlowMsg, Nac_UserDataFlowQueryMsg,
                     Nac_UserDataFlowQueryAckMsg>(nac_fwm_dataflow_recv_init,
                                                  {1739711260, 1306267774, 405055467, 760077815, 127434504});
    expect_stops_at_refusal(nac_fwm_dataflow_recv_init, 5);
}

TEST_F(Dataflow, ModuleRegistersAResourceCleanThatDoesNothing) {
    expect_registers_clean(nac_fwm_dataflow_send_init, nac_fwm_dataflow__send_resource_clean);
}

}  // namespace
