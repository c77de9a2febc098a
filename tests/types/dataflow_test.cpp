// SPDX-License-Identifier: Apache-2.0
// The data-flow messages: their bytes in both layouts.
#include "tests/support/byte_literals.h"

namespace {

using namespace tests;

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
    "04 00 0c 00 14 00 1c 00"   // offsets of f0 to f3
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
              "04 00 08 00"              // offsets of f0, f1
              "0c 00 10 00 14 00 18 00"  // offsets of f2 to f5
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
              "08 00 0c 00 10 00 14 00"   // offsets of f2 to f5
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
              "04 00 08 00 0c 00 10 00"  // offsets of f2 to f5
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
    "04 00 0c 00 14 00 1c 00"  // offsets of f0 to f3
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
              "04 00 08 00"                 // offsets of f0, f1
              "0c 00 44 00 7c 00 b4 00"});  // offsets of f2 to f5
    return text;
}

// ---- Nac_UserDataFlowCfg ----

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

TEST_F(Dataflow, CfgTravelsAsItsImageOf56Bytes) { EXPECT_BYTES(sent(kCfg), kCfgImage); }

// ---- Nac_UserDataFlowInfo ----

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

TEST_F(Dataflow, InfoTravelsAsItsImageOf256Bytes) {
    EXPECT_BYTES(sent(kInfo), info_image());
    EXPECT_EQ(sent(kInfo).size(), 256U);
}

// ---- Nac_UserDataFlowMsg ----

// A list over an array of the test's own.
template <std::size_t count>
Nac_UserDataFlowMsg list_of(Nac_UserDataFlowInfo (&elements)[count]) {
    return {count, elements};
}

TEST_F(Dataflow, EmptyListPacksTo14Bytes) {
    EXPECT_BYTES(packed(Nac_UserDataFlowMsg{}),
                 "0a 00 00 00"    // root reference: table at 10
                 "06 00 04 00"    // vtable length, table length
                 "00 00"          // f0 absent
                 "06 00 00 00");  // soffset
}

TEST_F(Dataflow, ListOfOneFullElement) {
    Nac_UserDataFlowInfo elements[] = {kInfo};
    EXPECT_BYTES(packed(list_of(elements)), join({"0a 00 00 00"   // root reference
                                                  "06 00 10 00"   // vtable length, table length 12 + 4
                                                  "04 00"         // offset of f0
                                                  "06 00 00 00"   // soffset
                                                  "04 00 00 00"   // f0: vector right after
                                                  "01 00 00 00"   // count
                                                  "14 00 00 00",  // element 0: table at 22 + 20
                                                  info_table()}));
}

TEST_F(Dataflow, ListWritesElementAfterElementEachWithItsSettings) {
    Nac_UserDataFlowInfo elements[] = {{}, kSparseInfo};
    EXPECT_BYTES(packed(list_of(elements)), join({"0a 00 00 00"   // root reference
                                                  "06 00 14 00"   // vtable length, table length 12 + 8
                                                  "04 00"         // offset of f0
                                                  "06 00 00 00"   // soffset
                                                  "04 00 00 00"   // f0: vector right after
                                                  "02 00 00 00"   // count
                                                  "18 00 00 00"   // element 0: table at 22 + 24
                                                  "78 00 00 00",  // element 1: table at 26 + 120
                                                  empty_info_table(), sparse_info_table()}));
}

TEST_F(Dataflow, ListElementsMayBeFixedImages) {
    const Unpacked<Nac_UserDataFlowMsg> list(
        hex(join({"0a 00 00 00"      // root reference
                  "06 00 10 00"      // vtable length, table length
                  "04 00"            // offset of f0
                  "06 00 00 00"      // soffset
                  "04 00 00 00"      // f0
                  "01 00 00 00",     // count
                  info_image()})));  // whose first 4 bytes are the reference
    ASSERT_EQ(list->f0_count, 1U);
    EXPECT_EQ(std::memcmp(list->f0, &kInfo, sizeof kInfo), 0);
}

// ---- Nac_UserDataFlowQueryMsg ----

TEST_F(Dataflow, QueryWithAllFieldsPacksTo24Bytes) {
    EXPECT_BYTES(packed(kQuery),
                 "0c 00 00 00"    // root reference
                 "08 00 0c 00"    // vtable length, table length
                 "04 00 08 00"    // offsets of f0, f1
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

TEST_F(Dataflow, QueryTravelsAsItsImageOf24Bytes) {
    EXPECT_BYTES(sent(kQuery),
                 "04 00 00 00"    // root reference
                 "f4 ff ff ff"    // soffset -12: vtable at 16
                 "80 22 33 44"    // f0
                 "81 22 33 44"    // f1
                 "08 00 0c 00"    // vtable length, table length
                 "04 00 08 00");  // offsets of f0, f1
}

// ---- Nac_UserDataFlowQueryAckMsg ----

TEST_F(Dataflow, QueryAnswerWithAllFieldsPacksTo260Bytes) {
    EXPECT_BYTES(packed(kQueryAck), join({"0c 00 00 00"   // root reference
                                          "08 00 0c 00"   // vtable length, table length
                                          "04 00 08 00"   // offsets of f0, f1
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

TEST_F(Dataflow, QueryAnswerTravelsAsItsImageOf280Bytes) {
    EXPECT_BYTES(sent(kQueryAck), join({"04 00 00 00"   // root reference
                                        "f8 fe ff ff"   // soffset -264: vtable at 268
                                        "70 22 33 44",  // f0
                                        info_image(),   // f1 at 12
                                        "08 00",        // vtable length
                                        in_full_or_shortened("08 01", "08 00"),  // table length 264
                                        "04 00 08 00"                            // offsets of f0, f1
                                        "00 00 00 00"}));                        // padding
    EXPECT_EQ(sent(kQueryAck).size(), 280U);
}

}  // namespace
